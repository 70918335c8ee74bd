// Daemons and ports in any state: sends on every family with any address and length, received
// frames, reads of any size, options of any level. The input is a row of steps: what, which,
// length, bytes.
#include "control.h"
#include "ifmgr/tarn_ifmgr.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "kernel/skb.h"
#include "module/tarn_module.h"
#include "pkt/pkt_redirect.h"
#include "plain_switch/plain_switch.h"
#include "socket_calls.h"
#include "sockets/sockets.h"
#include "tarn/rxtx_hw.h"
#include "tarn/skaddr.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr std::array FAMILIES{46, 47, 48, 50, 51, 52, 53, 54, 55, 56, 57,
                              60, 61, 62, 63, 65, 66, 67, 68, 69, 70};
constexpr std::array INTERFACES{5001u, 5002u, 5003u, 4501u, 301u, 302u, 0u, 9999u};
constexpr u32 LONGEST = 1500 + 18;

std::array<struct socket *, FAMILIES.size()> sockets{};
u32 answer = 0;
u32 taken = 0; // by the chip or a device, of the send under way

void forbidden(const char *what) {
    std::fprintf(stderr, "sent what the rules forbid: %s\n", what);
    std::abort();
}

// What the chip does with a frame, which may not be longer than a payload and its headers.
u32 chip_takes(sk_buff *skb) {
    if (skb_len(skb) > LONGEST)
        forbidden("too long a frame");
    if (answer != 0)
        return answer;
    taken++;
    consume_skb(skb);
    return 0;
}

// Nor may it leave a port that is down.
u32 xmit(u32 ifindex, u32, u32, u32, sk_buff *skb, u32, u8, u8) {
    tarn_if *port = ifindex != 0 ? tarn_ifmgr_lookup_by_index(ifindex) : nullptr;
    if (port && !(port->flags & 1) && port->ifindex != 4501)
        forbidden("on a port that is down");
    tarn_ifmgr_if_ref_put(port);
    return chip_takes(skb);
}

i32 flood(u32, u32, u32, u32, sk_buff *skb, u32, u8, u32, u32, u8) {
    return static_cast<i32>(chip_takes(skb));
}

void load() {
    init_module();
    rxtx_hw_callbacks callbacks{};
    callbacks.start_xmit = xmit;
    callbacks.flood_except = flood;
    rxtx_hw_register(callbacks);
    for (u32 vid : {1u, 2u})
        plain_switch::add_vlan(vid);
    for (u32 k = 1; k <= 3; k++)
        plain_switch::add_member(plain_switch::add_port(k), 1);
    const u8 address[6] = {2, 0, 0, 0, 2, 1};
    tarn_ifmgr_aggregator_add("lag1", address, TARN_AGG_TYPE_STATIC, 4501);
    tarn_ifmgr_aggregator_port_attach(4501, 5003);
    userlevel::work_run();
    enable_redirect_by_name("isis", 1);
    tarn_udld_enable(1);
    tarn_udld_set_hw_filter(5001, 1);
    for (std::size_t i = 0; i < FAMILIES.size(); i++)
        userlevel::socket_open(FAMILIES[i], SOCK_RAW, 0, &sockets[i]);
}

// A send that is refused leaves nothing behind on the wire, and no send leaves twice. What it
// answers is the length of the frame: that of the data, and headers of no more than 18 bytes.
void check_answer(i64 result, std::size_t length) {
    bool refused = result < 0 || answer != 0;
    if (taken > (refused ? 0 : 1))
        forbidden(refused ? "a frame that was refused" : "a frame twice");
    if (!refused && (result < static_cast<i64>(length) || result > static_cast<i64>(length) + 18))
        forbidden("a frame of another length");
}

// The address comes first; its interface is more often one that there is.
void send(u32 which, std::span<const u8> bytes) {
    std::size_t name_size = std::min<std::size_t>(bytes.size(), 40);
    std::vector<u8> name(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(name_size));
    u32 ifindex = INTERFACES[which / FAMILIES.size() % INTERFACES.size()];
    for (std::size_t at : {12u, 16u})
        if (name.size() >= at + 4 && name[at] & 1)
            std::memcpy(name.data() + at, &ifindex, sizeof(ifindex));
    std::vector<u8> data(bytes.size() % 3 == 0 ? bytes.size() * 13 : bytes.size() - name_size);
    iovec buffer{data.data(), data.size()};
    msghdr msg{};
    msg.msg_name = name.data();
    msg.msg_namelen = static_cast<socklen_t>(name.size());
    msg.msg_iov = &buffer;
    msg.msg_iovlen = 1;
    taken = 0;
    i64 result = userlevel::socket_sendmsg(sockets[which % FAMILIES.size()], &msg, MSG_DONTWAIT);
    check_answer(result, data.size());
}

void read(u32 which, std::size_t size) {
    std::vector<u8> data(size), name(128);
    iovec buffer{data.data(), data.size()};
    msghdr msg{};
    msg.msg_name = name.data();
    msg.msg_namelen = static_cast<socklen_t>(size % 129);
    msg.msg_iov = &buffer;
    msg.msg_iovlen = 1;
    int flags = MSG_DONTWAIT | (size & 1 ? MSG_PEEK : 0);
    userlevel::socket_recvmsg(sockets[which % FAMILIES.size()], &msg, flags);
}

// Any level and name; of the socket's own level more often those that there are.
void set_option(u32 which, std::span<const u8> bytes) {
    if (bytes.size() < 2)
        return;
    struct socket *socket = sockets[which % FAMILIES.size()];
    int level = bytes[0] & 1 ? SOL_SOCKET : bytes[0];
    std::vector<u8> value(bytes.begin() + 2, bytes.end());
    userlevel::socket_setsockopt(socket, level, bytes[1], value.data(),
                                 static_cast<socklen_t>(value.size()));
    auto length = static_cast<socklen_t>(value.size());
    userlevel::socket_getsockopt(socket, level, bytes[1], value.data(), &length);
    if (length > value.size())
        forbidden("more of an option than there is room for");
}

void deliver(u32 where, std::span<const u8> bytes) {
    tarn_rx_meta meta{};
    meta.flags = where & 8;
    meta.local = where >> 4 & 1;
    sk_buff *skb = userlevel::frame_make(bytes, where);
    if (skb && rxtx_hw_packet_recv(skb, 5000 + where % 4, where % 3, &meta) != 0)
        kfree_skb(skb);
}

void change(u32 what, u32 flags) {
    tarn_if *ifp = tarn_ifmgr_lookup_by_index(INTERFACES[what % 4]);
    ifp->flags = (ifp->flags & ~0x41u) | (flags & 0x41u);
    tarn_ifmgr_if_ref_put(ifp);
    answer = flags & 0x80 ? flags : 0;
    enable_redirect_by_name("vlan_local", (flags & 0x20) == 0);
}

void step(u32 what, u32 which, std::span<const u8> bytes) {
    switch (what % 5) {
    case 0:
        return send(which, bytes);
    case 1:
        return deliver(which, bytes);
    case 2:
        return read(which, what);
    case 3:
        return set_option(which, bytes);
    default:
        return change(which, what >> 2);
    }
}

void drain() {
    for (u32 i = 0; i < FAMILIES.size(); i++)
        while (userlevel::socket_poll(sockets[i], 1, 0))
            read(i, 64);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    static const bool loaded = (load(), true);
    static const userlevel::snapshot before = userlevel::take_snapshot();
    (void)loaded;
    while (size > 3) {
        std::size_t length = std::min<std::size_t>(data[2], size - 3);
        step(data[0], data[1], {data + 3, length});
        data += 3 + length;
        size -= 3 + length;
    }
    drain();
    userlevel::log_take();
    std::string lost = userlevel::describe(userlevel::leaked_since(before));
    if (!lost.empty()) {
        std::fprintf(stderr, "lost: %s", lost.c_str());
        std::abort();
    }
    return 0;
}
