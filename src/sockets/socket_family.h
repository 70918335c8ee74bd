// The template of the protocol socket families, and what each of them differs in.
//
// A family is a constexpr socket_family: its number, what its daemons receive, what they may send.
// family_sockets<record> makes the socket operations, the list of open sockets and the post hook of
// it. docs/sockets.md has a worked example.
//
//   Receive: the redirect's match decides; post() writes the address in front of the frame and
//   queues a clone on every open socket of the family. recvmsg gives the address as msg_name and
//   what follows it as the data.
//   Send: sendmsg checks name, port, state and length, builds the frame and hands it to transmit.
//   It answers the length of the frame, headers included: not what the daemon passed.
#pragma once

#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"
#include "sockets/socket.h"
#include "sockets/socket_list.h"
#include "tarn/skaddr.h"

struct socket_family;

// What most matches decide: to the daemon, here and on the other members of a stack.
inline constexpr u32 REDIRECT_TO_DAEMON =
    REDIRECT_POST_USERSPACE | REDIRECT_STACK_REPLICATE | REDIRECT_STOP;

inline void redirect_decide(redirect_instruct *instruct, u32 flags, u32 reason) {
    instruct->flags |= flags;
    instruct->reason = reason;
}

// Frames of VLANs that the port is no member of, where it filters.
inline bool redirect_filtered(const tarn_pkt_info *info) {
    return !info->vlan_member_ok && info->ingress_filter;
}

// A frame to one of these: the first `count` bytes of the destination.
inline bool frame_is_to(const tarn_pkt_info *info, const u8 *address, u32 count = ETH_ALEN) {
    return frame_bytes(info->skb).equals(ETH_DST_OFFSET, address, count);
}

// --- receive -----------------------------------------------------------------------------------

enum socket_push : u32 {
    SOCKET_PUSH_L2 = 2,      // an l2_skaddr; the data is what follows the Ethernet header
    SOCKET_PUSH_VLAN = 22,   // a vlan_skaddr whose end lies over the header; the data as above
    SOCKET_PUSH_HEADER = 36, // a vlan_skaddr; the data begins with the Ethernet header
};

enum socket_port : u32 {
    SOCKET_RX_PORT,    // the receiving port
    SOCKET_L2_IFINDEX, // its aggregator, if it has one
};

struct socket_receive_rules {
    socket_push push;
    socket_port port;
    // Optional: what happens to the frame before it gets its address. The frame, or null when it
    // has to be dropped; it is alive then.
    sk_buff *(*prepare)(sk_buff *skb, const tarn_post_info *info) = nullptr;
    // Optional: the last word on the bytes of the address, behind which the frame's payload lies.
    void (*address)(u8 *address, const sk_buff *skb, const tarn_post_info *info) = nullptr;
};

// --- send --------------------------------------------------------------------------------------

// The payload, where its length says nothing else of the frame's.
inline constexpr std::size_t SOCKET_PAYLOAD_MAX = 1500;

inline constexpr u32 SOCKET_TO_ETHERNET = 1u << TARN_IF_TYPE_ETHERNET;
inline constexpr u32 SOCKET_TO_PORT = 1u << TARN_IF_TYPE_SWITCHPORT;

inline constexpr u32 SOCKET_UP = 0x1;
inline constexpr u32 SOCKET_UP_AND_RUNNING = TARN_IF_LINK;

// Headers that are no Ethernet type.
inline constexpr u16 SOCKET_HEADER_NONE = 0;   // the payload is the whole frame
inline constexpr u16 SOCKET_HEADER_LENGTH = 1; // IEEE 802.3: the length of the payload

// One sendmsg under way. The interfaces are held by references.
struct socket_send {
    const socket_family *family;
    sock *sk;
    vlan_skaddr address;      // zero where the daemon gave less
    tarn_if *named = nullptr; // what the address names
    tarn_if *port = nullptr;  // where the frame leaves
    tarn_if *vlan = nullptr;  // what VLAN it belongs to
};

struct socket_send_rules {
    const char *function; // as the log names it
    u32 min_name;
    // Log lines of a call without an address, with a short one; null: silent. Both may print
    // `function`, the second the length.
    const char *null_message;
    const char *short_message;
    bool short_first = false;  // asks for the length before it asks for the address
    bool length_first = false; // asks for the payload's length before all else
    u32 types = SOCKET_TO_PORT;
    u32 up = SOCKET_UP_AND_RUNNING;
    bool straight = false;    // on the named port, never on a member of it
    bool vlan_by_vid = false; // the VLAN must exist
    bool by_flag = false;     // xmit_flag asks for the transmit option
    u16 header = SOCKET_HEADER_NONE;
    u16 headroom = 64;
    u16 room = 64; // allocated beyond the payload
    u32 cos = 6, queue = 6;
    // Optional, in place of the steps above: which interface, checked: 0 or a negative errno.
    i32 (*route)(socket_send *send) = nullptr;
    // Optional: writes what stands in front of the payload of an empty frame.
    void (*write_header)(sk_buff *skb, const socket_send *send, u16 length) = nullptr;
    // Optional: sends the frame, which is gone whatever the result: see socket_sent.
    i32 (*transmit)(const socket_send *send, sk_buff *skb) = nullptr;
};

inline constexpr char L2_SKADDR_IS_NULL[] = "l2_skaddr is null";
inline constexpr char VLAN_SKADDR_IS_NULL[] = "vlan_skaddr is null";
inline constexpr char SKADDR_IS_SHORT[] = "%s namelen %d";

// The result of a transmit call, on any but 0 of which the frame stayed here: frees it then.
i32 socket_sent(sk_buff *skb, u32 result);
// Sends the frame on the port of the send, with that class of service and the rest of its rules.
i32 socket_transmit(const socket_send *send, sk_buff *skb, u32 cos);
// Checks that the interface is what the rules want, and finds where frames for it leave.
i32 socket_route_port(socket_send *send);

// --- the template ------------------------------------------------------------------------------

struct socket_family {
    i32 number; // tarn_socket_family
    const char *name;
    const char *lock_name;
    u32 address_size; // of what is received
    socket_receive_rules receive;
    socket_send_rules send;
    bool reads = true; // whether its daemons may call recvmsg, and sendmsg
    bool sends = true;
};

i32 socket_family_create(const net_proto_family *record, net *space, struct socket *socket,
                         i32 protocol, i32 kern, void (*destruct)(sock *sk), sk_list *list,
                         rwlock_t *lock);
i32 socket_family_sendmsg(const socket_family *family, struct socket *socket, msghdr *msg,
                          std::size_t length);
i32 socket_family_recvmsg(u32 address_size, struct socket *socket, msghdr *msg, std::size_t size,
                          i32 flags);
// Writes the address in front of the frame: the frame, or a new one in its place; null: it could
// not be had, and the frame is still alive. The frame has its Ethernet header.
sk_buff *socket_family_address(const socket_receive_rules *rules, sk_buff *skb,
                               const tarn_post_info *info);
// And a clone to every socket of the list. A runt, or a frame without the port that its address
// would name, is given back as it is.
sk_buff *socket_family_post(const socket_receive_rules *rules, sk_buff *skb,
                            const tarn_post_info *info, const sk_list *list, rwlock_t *lock);

template <const socket_family &Family>
struct family_sockets {
    static inline constinit sk_list list{};
    static inline constinit rwlock_t lock{};

    static i32 create(net *space, struct socket *socket, i32 protocol, i32 kern) {
        return socket_family_create(&record, space, socket, protocol, kern, destruct, &list, &lock);
    }
    static i32 release(struct socket *socket) { return tarn_socket_release(socket, &lock); }
    static void destruct(sock *sk) { tarn_socket_destruct(sk, &lock); }
    static i32 sendmsg(struct socket *socket, msghdr *msg, std::size_t length) {
        return socket_family_sendmsg(&Family, socket, msg, length);
    }
    static i32 recvmsg(struct socket *socket, msghdr *msg, std::size_t size, i32 flags) {
        return socket_family_recvmsg(Family.address_size, socket, msg, size, flags);
    }
    static sk_buff *post(sk_buff *skb, tarn_post_info *info) {
        return socket_family_post(&Family.receive, skb, info, &list, &lock);
    }

    static constexpr proto object{Family.name};
    static constexpr proto_ops ops{Family.number, release, Family.sends ? sendmsg : nullptr,
                                   Family.reads ? recvmsg : nullptr};
    static constexpr net_proto_family record{Family.number, create, &object, &ops};

    // The family alone; the kernel may have no room for it, which is accepted.
    static void open(const net_proto_family *family = &record) {
        rwlock_init(&lock, Family.lock_name);
        if (sock_register(family) == 0)
            socket_list_family(Family.number, Family.name, &list, &lock);
    }
    // The redirect, then the family: without the one not the other.
    static i32 start(const packet_redirect *redirect, u32 slot,
                     const net_proto_family *family = &record) {
        i32 result = tarn_pkt_register_packet_redirection(redirect, slot);
        if (result == 0)
            open(family);
        return result;
    }
};
