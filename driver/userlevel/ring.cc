#include "ring.h"

#include "checksum.h"
#include "kernel/memory.h"
#include "kernel/skb.h"

#include <arpa/inet.h>
#include <array>
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
constexpr u32 FRAME_BYTES = 10240; // a header and 9216 + 4
constexpr u32 BLOCK_BYTES = 1 << 20;
constexpr u32 BLOCKS = 4;
constexpr u32 FRAMES_OF_BLOCK = BLOCK_BYTES / FRAME_BYTES;
constexpr u32 FRAMES = FRAMES_OF_BLOCK * BLOCKS;
constexpr u32 LARGEST = 65536 + 256; // that a device may leave to hardware to cut
constexpr u32 LARGEST_SEGMENT = 9216;
constexpr int QUEUE_BYTES = 16 << 20;
constexpr u32 TAG_AT = 12, TAG_BYTES = 4;

// What a device was to do to a frame, before each frame on this socket (struct virtio_net_hdr,
// whose header is not C++).
struct device_work {
    u8 flags, gso_type;
    u16 header_length, gso_size, csum_start, csum_offset;
};
constexpr u8 GSO_NONE = 0, GSO_TCPV4 = 1, GSO_TCPV6 = 4, GSO_UDP_L4 = 5, GSO_ECN = 0x80;

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
    // As root; else frames to be cut have less room.
    if (setsockopt(ring.socket, SOL_SOCKET, SO_RCVBUFFORCE, &QUEUE_BYTES, sizeof(QUEUE_BYTES)) != 0)
        setsockopt(ring.socket, SOL_SOCKET, SO_RCVBUF, &QUEUE_BYTES, sizeof(QUEUE_BYTES));
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

// The tag that the kernel took off stands in the header.
void put_frame(sk_buff *skb, const tpacket2_hdr &header, std::span<const u8> bytes) {
    bool tagged = (header.tp_status & TP_STATUS_VLAN_VALID) && bytes.size() >= TAG_AT;
    std::span<const u8> before = bytes.first(tagged ? TAG_AT : bytes.size());
    std::span<const u8> after = bytes.subspan(before.size());
    std::memcpy(skb_put(skb, static_cast<u32>(before.size())), before.data(), before.size());
    if (!tagged)
        return;
    u16 type = header.tp_status & TP_STATUS_VLAN_TPID_VALID ? header.tp_vlan_tpid : u16{0x8100};
    u16 tag[] = {htons(type), htons(header.tp_vlan_tci)};
    std::memcpy(skb_put(skb, TAG_BYTES), tag, TAG_BYTES);
    std::memcpy(skb_put(skb, static_cast<u32>(after.size())), after.data(), after.size());
}

sk_buff *make_frame(ring &ring, const tpacket2_hdr &header, std::span<const u8> bytes) {
    sk_buff *skb =
        __netdev_alloc_skb(nullptr, static_cast<u32>(bytes.size()) + TAG_BYTES, GFP_KERNEL);
    if (skb)
        put_frame(skb, header, bytes);
    else
        ring.lost++;
    return skb;
}

// What did not fit into the ring was queued whole, with what the hardware was to do before it.
bool take_whole(const ring &ring, std::vector<u8> &bytes, device_work &work) {
    bytes.resize(LARGEST);
    iovec parts[] = {{&work, sizeof(work)}, {bytes.data(), bytes.size()}};
    ssize_t got = readv(ring.socket, parts, 2);
    bytes.resize(got < static_cast<ssize_t>(sizeof(work))
                     ? 0
                     : static_cast<std::size_t>(got) - sizeof(work));
    return !bytes.empty();
}

// A frame that is cut has its tag put in first, so that each of its segments has it.
void begin_cutting(ring &ring, const tpacket2_hdr &header, const device_work &work) {
    u32 l4 = work.csum_start;
    if ((header.tp_status & TP_STATUS_VLAN_VALID) && ring.large.bytes.size() >= TAG_AT) {
        u16 type = header.tp_status & TP_STATUS_VLAN_TPID_VALID ? header.tp_vlan_tpid : u16{0x8100};
        u16 tag[] = {htons(type), htons(header.tp_vlan_tci)};
        const u8 *bytes = reinterpret_cast<const u8 *>(tag);
        ring.large.bytes.insert(ring.large.bytes.begin() + TAG_AT, bytes, bytes + TAG_BYTES);
        l4 += TAG_BYTES;
    }
    u8 kind = work.gso_type & static_cast<u8>(~GSO_ECN);
    bool tcp = kind == GSO_TCPV4 || kind == GSO_TCPV6;
    bool known = tcp || kind == GSO_UDP_L4;
    if (!known || work.gso_size > LARGEST_SEGMENT ||
        !large_frame_begin(ring.large, l4, work.gso_size, !tcp)) {
        ring.large.bytes.clear();
        ring.lost++;
    }
}

sk_buff *next_segment(ring &ring) {
    std::array<u8, FRAME_BYTES> bytes;
    while (u32 length = large_frame_next(ring.large, bytes)) {
        sk_buff *skb = __netdev_alloc_skb(nullptr, length, GFP_KERNEL);
        if (skb) {
            std::memcpy(skb_put(skb, length), bytes.data(), length);
            return skb;
        }
        ring.lost++;
    }
    return nullptr;
}

// Leaves the frame in ring.large if that works.
void take_large(ring &ring, const tpacket2_hdr &header, std::span<const u8> bytes,
                device_work work) {
    bool whole = header.tp_snaplen == header.tp_len;
    if (whole)
        ring.large.bytes.assign(bytes.begin(), bytes.end());
    else if (header.tp_status & TP_STATUS_COPY)
        whole = take_whole(ring, ring.large.bytes, work);
    if (whole && work.gso_type != GSO_NONE)
        return begin_cutting(ring, header, work);
    ring.large.bytes.clear();
    ring.lost++;
}

// One place of the ring: its frame, or null when there is none, or it is to be cut.
sk_buff *take_frame(ring &ring, const tpacket2_hdr &header) {
    const u8 *bytes = reinterpret_cast<const u8 *>(&header) + header.tp_mac;
    device_work work;
    std::memcpy(&work, bytes - sizeof(work), sizeof(work));
    if (header.tp_snaplen < header.tp_len || work.gso_type != GSO_NONE) {
        take_large(ring, header, {bytes, header.tp_snaplen}, work);
        return nullptr;
    }
    sk_buff *skb = make_frame(ring, header, {bytes, header.tp_snaplen});
    if (skb && (header.tp_status & TP_STATUS_CSUMNOTREADY))
        checksum_fill(skb_data(skb), skb_len(skb));
    return skb;
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

sk_buff *ring_next(ring &ring) {
    for (;;) {
        if (sk_buff *skb = next_segment(ring))
            return skb;
        tpacket2_hdr *header = header_at(ring, ring.next);
        if (!(__atomic_load_n(&header->tp_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER))
            return nullptr;
        sk_buff *skb = take_frame(ring, *header);
        __atomic_store_n(&header->tp_status, u32{TP_STATUS_KERNEL}, __ATOMIC_RELEASE);
        ring.next = (ring.next + 1) % FRAMES;
        if (skb)
            return skb;
    }
}

int ring_send(const ring &ring, std::span<const u8> frame) {
    device_work nothing_to_do{};
    iovec parts[] = {{&nothing_to_do, sizeof(nothing_to_do)},
                     {const_cast<u8 *>(frame.data()), frame.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (sendmsg(ring.socket, &message, MSG_DONTWAIT) >= 0)
        return 0;
    return -errno;
}
