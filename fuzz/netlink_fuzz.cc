// Bytes into the control family: the first byte says how many messages follow, each with a length
// in 16 bits; what is left is one datagram. After each datagram the deferred work runs; after all
// of them every interface goes, and nothing may be left.
#include "control.h"
#include "fuzzed_switch.h"
#include "netlink.h"

#include <cstring>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <vector>

namespace {

constexpr std::uint16_t FAMILY = 0x13;

userlevel::netlink_socket &client() {
    static userlevel::netlink_socket socket([](std::span<const std::uint8_t>) {});
    return socket;
}

bool start() {
    fuzzed::load();
    client().set_option(NETLINK_GENERIC, NETLINK_EXT_ACK, 1);
    return true;
}

// A range of VLANs may be long, and each of them is a device.
bool is_too_long(const std::vector<std::uint8_t> &datagram) {
    return datagram.size() > 2048;
}

void send(const std::uint8_t *bytes, std::size_t size, bool with_header) {
    std::vector<std::uint8_t> datagram;
    if (with_header) {
        nlmsghdr header{.nlmsg_len = static_cast<std::uint32_t>(sizeof(header) + size),
                        .nlmsg_type = FAMILY,
                        .nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK,
                        .nlmsg_seq = 1,
                        .nlmsg_pid = 0};
        datagram.resize(sizeof(header));
        std::memcpy(datagram.data(), &header, sizeof(header));
    }
    datagram.insert(datagram.end(), bytes, bytes + size);
    if (!is_too_long(datagram))
        client().send(datagram);
    userlevel::work_run();
    userlevel::neigh_flushes_take();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool started = start();
    if (!started || size == 0)
        return 0;
    std::uint32_t messages = *data++ % 8;
    size--;
    while (messages-- > 0 && size >= 2) {
        std::size_t length = (data[0] | data[1] << 8) % 512;
        data += 2;
        size -= 2;
        length = length < size ? length : size;
        send(data, length, true);
        data += length;
        size -= length;
    }
    send(data, size, false);
    fuzzed::reset();
    fuzzed::must_have_lost_nothing();
    return 0;
}
