// Everything at once against one switch: frames with metadata, frames on the chip's ports and of
// the IP stack, netlink messages, sockets that open, send, read, set options and close, proc files,
// lines of a batch, words to the chip, time that passes, and memory that fails. In whatever order;
// at the end every interface goes, and nothing may be left.
#include "chip.h"
#include "chip_ports.h"
#include "config/config.h"
#include "control.h"
#include "fuzzed_switch.h"
#include "ifmgr/tarn_if.h"
#include "kernel/memory.h"
#include "kernel/netdev.h"
#include "kernel/skb.h"
#include "kernel/sock.h"
#include "netlink.h"
#include "socket_calls.h"
#include "tarn/rxtx_hw.h"

#include <array>
#include <cstring>
#include <linux/netlink.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

// A range of thousands of VLANs costs seconds: when there are some, there is no memory for more.
namespace {
constexpr unsigned MOST_VLANS = 32;
unsigned vlans = 0;
} // namespace
extern "C" i32 __real__Z22tarn_ifmgr_vlan_createPKhjPP7tarn_iftj(const u8 *, u32, tarn_if **, u16,
                                                                 u32);
extern "C" i32 __wrap__Z22tarn_ifmgr_vlan_createPKhjPP7tarn_iftj(const u8 *hwaddr, u32 length,
                                                                 tarn_if **out, u16 vid,
                                                                 u32 options) {
    if (++vlans > MOST_VLANS)
        return TARN_ERR_NO_MEMORY;
    return __real__Z22tarn_ifmgr_vlan_createPKhjPP7tarn_iftj(hwaddr, length, out, vid, options);
}

namespace {

constexpr std::array FAMILIES{46, 47, 48, 50, 51, 52, 53, 54, 55, 56, 57,
                              60, 61, 62, 63, 65, 66, 67, 68, 69, 70};
constexpr std::uint16_t FAMILY = 0x13;

std::array<struct socket *, FAMILIES.size()> sockets{};
std::vector<std::string> files;
std::vector<char> reply(CHIP_REPLY);

userlevel::netlink_socket &client() {
    static userlevel::netlink_socket socket([](std::span<const std::uint8_t>) {});
    return socket;
}

void start() {
    fuzzed::load();
    files = fuzzed::files();
    client().set_option(NETLINK_GENERIC, NETLINK_EXT_ACK, 1);
    client().set_option(NETLINK_GENERIC, 1, 2); // events, too
}

void frame(u32 which, std::span<const u8> bytes) {
    tarn_rx_meta meta{};
    if (bytes.size() < 4)
        return;
    meta.code = bytes[0];
    meta.flags = bytes[1];
    meta.rx_flags = bytes[2];
    meta.local = bytes[3] & 1;
    meta.local_post_kernel = bytes[3] >> 1 & 1;
    sk_buff *skb = userlevel::frame_make(bytes.subspan(4), bytes[3] >> 2);
    if (skb && rxtx_hw_packet_recv(skb, 5000 + which % 5, which / 5 % 4, &meta) != 0)
        kfree_skb(skb);
}

void message(std::span<const u8> bytes) {
    nlmsghdr header{.nlmsg_len = static_cast<std::uint32_t>(sizeof(header) + bytes.size()),
                    .nlmsg_type = FAMILY,
                    .nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK,
                    .nlmsg_seq = 1,
                    .nlmsg_pid = 0};
    std::vector<std::uint8_t> datagram(sizeof(header) + bytes.size());
    std::memcpy(datagram.data(), &header, sizeof(header));
    std::copy(bytes.begin(), bytes.end(), datagram.begin() + sizeof(header));
    client().send(datagram);
}

// With the reference that a closed socket leaves behind on purpose.
void close_socket(struct socket *&socket) {
    if (!socket)
        return;
    sock *sk = socket_sk(socket);
    userlevel::socket_close(socket);
    sock_put(sk);
    socket = nullptr;
}

void open_or_close(u32 which) {
    struct socket *&socket = sockets[which % sockets.size()];
    close_socket(socket);
    if (which & 0x80)
        userlevel::socket_open(FAMILIES[which % FAMILIES.size()], SOCK_RAW, 0, &socket);
}

struct socket *opened(u32 which) {
    struct socket *&socket = sockets[which % sockets.size()];
    if (!socket)
        userlevel::socket_open(FAMILIES[which % FAMILIES.size()], SOCK_RAW, 0, &socket);
    return socket;
}

void send(u32 which, std::span<const u8> bytes) {
    struct socket *socket = opened(which);
    std::vector<u8> all(bytes.begin(), bytes.end());
    std::size_t name = std::min<std::size_t>(all.size(), 36);
    iovec buffer{all.data() + name, all.size() - name};
    msghdr msg{};
    msg.msg_name = all.data();
    msg.msg_namelen = static_cast<socklen_t>(name);
    msg.msg_iov = &buffer;
    msg.msg_iovlen = 1;
    if (socket)
        userlevel::socket_sendmsg(socket, &msg, MSG_DONTWAIT);
}

void read(u32 which, std::span<const u8> bytes) {
    struct socket *socket = opened(which);
    std::vector<u8> data(bytes.size()), name(64);
    iovec buffer{data.data(), data.size()};
    msghdr msg{};
    msg.msg_name = name.data();
    msg.msg_namelen = 64;
    msg.msg_iov = &buffer;
    msg.msg_iovlen = 1;
    if (socket)
        userlevel::socket_recvmsg(socket, &msg, MSG_DONTWAIT);
}

void set_option(u32 which, std::span<const u8> bytes) {
    struct socket *socket = opened(which);
    if (!socket || bytes.size() < 2)
        return;
    int level = bytes[0] & 1 ? SOL_SOCKET : bytes[0];
    std::vector<u8> value(bytes.begin() + 2, bytes.end());
    userlevel::socket_setsockopt(socket, level, bytes[1], value.data(),
                                 static_cast<socklen_t>(value.size()));
    auto length = static_cast<socklen_t>(value.size());
    userlevel::socket_getsockopt(socket, level, bytes[1], value.data(), &length);
}

void file(u32 which, std::span<const u8> bytes) {
    const std::string &name = files[which % files.size()];
    userlevel::proc_write(name, bytes.data(), bytes.size());
    userlevel::proc_read(name);
}

std::string say(const std::string &line, bool &ok) {
    ok = chip_command(line.c_str(), reply.data(), reply.size()) == 0;
    return reply.data();
}

// As people give it: a file.
void batch(std::span<const u8> bytes) {
    static const int fd = memfd_create("batch", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (ftruncate(fd, 0) == 0 && pwrite(fd, bytes.data(), bytes.size(), 0) >= 0)
        config::apply(path, say);
}

void transmit(u32 which, std::span<const u8> bytes) {
    net_device *device = dev_get_by_name(which & 1 ? "vlan1" : "vlan2");
    if (!device)
        return;
    userlevel::netdev_transmit(device, bytes, which >> 1);
    dev_put(device);
}

void pass_time(u32 which, std::span<const u8> bytes) {
    userlevel::work_run();
    userlevel::clock_advance(which);
    if (!bytes.empty())
        userlevel::fail_allocation(bytes[0]);
}

void step(u32 what, u32 which, std::span<const u8> bytes) {
    bool ok;
    switch (what % 13) {
    case 0:
    case 1:
        return frame(which, bytes);
    case 2:
    case 3:
        return message(bytes);
    case 4:
        return open_or_close(which);
    case 5:
        return send(which, bytes);
    case 6:
        return read(which, bytes);
    case 7:
        return set_option(which, bytes);
    case 8:
        return file(which, bytes);
    case 9:
        return batch(bytes);
    case 10:
        say(std::string(bytes.begin(), bytes.end()), ok);
        return chip_ports_receive(which % 4, bytes);
    case 11:
        return transmit(which, bytes);
    default:
        return pass_time(which, bytes);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    static const bool started = (start(), true);
    (void)started;
    userlevel::clock_stop(1000000);
    vlans = 0;
    fuzzed::run_steps({data, size}, step);
    vlans = 0;
    userlevel::fail_allocation(0);
    for (struct socket *&socket : sockets)
        close_socket(socket);
    fuzzed::reset();
    fuzzed::must_have_lost_nothing();
    return 0;
}
