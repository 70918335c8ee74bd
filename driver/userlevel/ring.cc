#include "ring.h"

#include "kernel/memory.h"
#include "kernel/skb.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

// A place for each frame and not blocks of many: a block is handed over when it is full or when a
// timer of some milliseconds runs out, and a switch may not wait for either.
constexpr u32 FRAME_BYTES =
    2048; // a header and what most frames have; longer ones are queued whole
constexpr u32 BLOCK_BYTES = 1 << 20;
constexpr u32 BLOCKS = 4;
constexpr u32 FRAMES_OF_BLOCK = BLOCK_BYTES / FRAME_BYTES;
constexpr u32 FRAMES = FRAMES_OF_BLOCK * BLOCKS;
constexpr u32 LONGEST = 9216 + 14 + 2 * 4; // of what is not to be cut
constexpr int QUEUE_BYTES = 32 << 20;
constexpr u32 TAG_AT = 12, TAG_BYTES = 4;

template <typename T>
bool set_option(int socket, int option, const T &value) {
    return setsockopt(socket, SOL_PACKET, option, &value, sizeof(value)) == 0;
}

bool is_ethernet(int socket, const char *name) {
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    return ioctl(socket, SIOCGIFHWADDR, &request) == 0 &&
           request.ifr_hwaddr.sa_family == ARPHRD_ETHER;
}

// As root; else large frames have less room.
void make_room(int socket, int forced, int asked) {
    if (setsockopt(socket, SOL_SOCKET, forced, &QUEUE_BYTES, sizeof(QUEUE_BYTES)) != 0)
        setsockopt(socket, SOL_SOCKET, asked, &QUEUE_BYTES, sizeof(QUEUE_BYTES));
}

// The ring is set up before the socket is bound: no frame arrives by another way.
bool set_up(ring &ring, u32 ifindex) {
    tpacket_req request{.tp_block_size = BLOCK_BYTES,
                        .tp_block_nr = BLOCKS,
                        .tp_frame_size = FRAME_BYTES,
                        .tp_frame_nr = FRAMES};
    packet_mreq promiscuous{.mr_ifindex = static_cast<int>(ifindex),
                            .mr_type = PACKET_MR_PROMISC,
                            .mr_alen = 0,
                            .mr_address = {}};
    if (!set_option(ring.socket, PACKET_VERSION, int{TPACKET_V2}) ||
        !set_option(ring.socket, PACKET_IGNORE_OUTGOING, 1) ||
        !set_option(ring.socket, PACKET_VNET_HDR, 1) ||
        !set_option(ring.socket, PACKET_COPY_THRESH, 1) ||
        !set_option(ring.socket, PACKET_RX_RING, request) ||
        !set_option(ring.socket, PACKET_ADD_MEMBERSHIP, promiscuous))
        return false;
    make_room(ring.socket, SO_RCVBUFFORCE, SO_RCVBUF);
    make_room(ring.socket, SO_SNDBUFFORCE, SO_SNDBUF);
    void *memory = mmap(nullptr, std::size_t{BLOCK_BYTES} * BLOCKS, PROT_READ | PROT_WRITE,
                        MAP_SHARED, ring.socket, 0);
    if (memory == MAP_FAILED)
        return false;
    ring.memory = static_cast<u8 *>(memory);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(ifindex);
    return bind(ring.socket, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
}

tpacket2_hdr *header_at(const ring &ring, u32 frame) {
    u8 *block = ring.memory + std::size_t{frame / FRAMES_OF_BLOCK} * BLOCK_BYTES;
    return reinterpret_cast<tpacket2_hdr *>(block + frame % FRAMES_OF_BLOCK * FRAME_BYTES);
}

bool has_tag_apart(const tpacket2_hdr &header) {
    return (header.tp_status & TP_STATUS_VLAN_VALID) && header.tp_len >= TAG_AT;
}

// The tag that the kernel took off stands in the header, and goes back to its place. What is behind
// it moves.
void put_tag(u8 *at, const tpacket2_hdr &header, device_work &work) {
    u16 type = header.tp_status & TP_STATUS_VLAN_TPID_VALID ? header.tp_vlan_tpid : u16{0x8100};
    u16 tag[] = {htons(type), htons(header.tp_vlan_tci)};
    std::memcpy(at, tag, TAG_BYTES);
    work.csum_start = static_cast<u16>(work.csum_start + TAG_BYTES);
    work.header_length = static_cast<u16>(work.header_length + TAG_BYTES);
}

// What did not fit into the ring was queued whole, with the work before it.
bool read_whole(const ring &ring, device_work &work, std::span<u8> before, std::span<u8> after) {
    iovec parts[] = {
        {&work, sizeof(work)}, {before.data(), before.size()}, {after.data(), after.size()}};
    return readv(ring.socket, parts, 3) ==
           static_cast<ssize_t>(sizeof(work) + before.size() + after.size());
}

bool read_place(const tpacket2_hdr &header, device_work &work, std::span<u8> before,
                std::span<u8> after) {
    const u8 *bytes = reinterpret_cast<const u8 *>(&header) + header.tp_mac;
    std::memcpy(&work, bytes - sizeof(work), sizeof(work));
    std::memcpy(before.data(), bytes, before.size());
    std::memcpy(after.data(), bytes + before.size(), after.size());
    return true;
}

// The frame of a place, from there or, when it is long, from the queue.
bool read_frame(const ring &ring, const tpacket2_hdr &header, u8 *to, device_work &work) {
    u32 tag = has_tag_apart(header) ? TAG_BYTES : 0;
    std::span<u8> before{to, tag != 0 ? TAG_AT : header.tp_len};
    std::span<u8> after{to + before.size() + tag, header.tp_len - before.size()};
    bool whole = header.tp_snaplen >= header.tp_len  ? read_place(header, work, before, after)
                 : header.tp_status & TP_STATUS_COPY ? read_whole(ring, work, before, after)
                                                     : false;
    if (whole && tag != 0)
        put_tag(to + TAG_AT, header, work);
    return whole;
}

// Null: it is lost.
sk_buff *take_frame(const ring &ring, const tpacket2_hdr &header, chip_work &work) {
    work.length = header.tp_len + (has_tag_apart(header) ? TAG_BYTES : 0);
    sk_buff *skb = __netdev_alloc_skb(nullptr, work.length, GFP_KERNEL);
    if (!skb)
        return nullptr;
    u8 *to = static_cast<u8 *>(skb_put(skb, work.length));
    bool sound = read_frame(ring, header, to, work.told) && work_is_sound(skb, work) &&
                 (work.told.gso_type != 0 || work.length <= LONGEST);
    if (sound)
        return skb;
    kfree_skb(skb);
    return nullptr;
}

} // namespace

int ring_open(ring &ring, const char *name) {
    u32 ifindex = if_nametoindex(name);
    if (ifindex == 0)
        return -ENODEV;
    // Bound to no protocol yet: it hears nothing.
    ring.socket = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (ring.socket < 0)
        return -errno;
    int result = is_ethernet(ring.socket, name) ? 0 : -EINVAL;
    if (result == 0 && !set_up(ring, ifindex))
        result = -errno;
    if (result != 0)
        ring_close(ring);
    return result;
}

void ring_close(ring &ring) {
    if (ring.memory)
        munmap(ring.memory, std::size_t{BLOCK_BYTES} * BLOCKS);
    if (ring.socket >= 0)
        close(ring.socket);
    ring.memory = nullptr;
    ring.socket = -1;
}

bool ring_is_alive(const ring &ring) {
    int error;
    socklen_t size = sizeof(error);
    getsockopt(ring.socket, SOL_SOCKET, SO_ERROR, &error, &size);
    sockaddr_ll bound{};
    size = sizeof(bound);
    // The kernel unbinds the socket from a device that is deleted.
    return getsockname(ring.socket, reinterpret_cast<sockaddr *>(&bound), &size) == 0 &&
           bound.sll_ifindex > 0;
}

// The kernel's own count starts anew with each look.
unsigned long ring_lost(ring &ring) {
    tpacket_stats since{};
    socklen_t size = sizeof(since);
    if (getsockopt(ring.socket, SOL_PACKET, PACKET_STATISTICS, &since, &size) == 0)
        ring.lost += since.tp_drops;
    return ring.lost;
}

sk_buff *ring_next(ring &ring, chip_work &work) {
    for (;;) {
        tpacket2_hdr *header = header_at(ring, ring.next);
        if (!(__atomic_load_n(&header->tp_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER))
            return nullptr;
        sk_buff *skb = take_frame(ring, *header, work);
        __atomic_store_n(&header->tp_status, u32{TP_STATUS_KERNEL}, __ATOMIC_RELEASE);
        ring.next = (ring.next + 1) % FRAMES;
        if (skb)
            return skb;
        ring.lost++;
    }
}

int ring_send(const ring &ring, std::span<const u8> frame, const device_work &work) {
    iovec parts[] = {{const_cast<device_work *>(&work), sizeof(work)},
                     {const_cast<u8 *>(frame.data()), frame.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (sendmsg(ring.socket, &message, MSG_DONTWAIT) >= 0)
        return 0;
    return -errno;
}
