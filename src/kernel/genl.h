// Netlink: a generic family with its commands and events, and the raw socket for whole frames.
//
// A family is one constant record. The home registers it, checks messages against its policy as the
// kernel does (strictly: no unknown attributes, no integers of a wrong size), and calls `doit` for
// those that pass, one at a time over all senders, in process context. What doit returns becomes
// the acknowledgement.
//
// A message that goes out is a sk_buff:
//
//   __alloc_skb(size, flags, 0, -1)         an empty buffer; null on failure
//   genlmsg_put(skb, 0, 0, family, flags, command)
//                                           the headers; null, or an error as a pointer, on failure
//   nla_put(skb, type, length, data)        an attribute: 0, -EMSGSIZE
//   genlmsg_end(skb, header)                writes the length into the header
//   genlmsg_multicast_allns(family, skb, 0, 0, flags)
//                                           to who joined the family's group, in all namespaces;
//                                           consumes the buffer. -ESRCH when nobody did
#pragma once

#include "kernel/bytes.h"
#include "kernel/skb.h"
#include "kernel/types.h"

struct sock;

// An attribute as it stands in a message: this header, then the payload. Types carry flag bits.
struct nlattr {
    u16 nla_len; // with the header
    u16 nla_type;
};
inline constexpr u32 NLA_HDRLEN = 4;

inline const void *nla_data(const nlattr *attribute) {
    return attribute + 1;
}
inline u32 nla_len(const nlattr *attribute) {
    return attribute->nla_len - NLA_HDRLEN;
}

// By attribute number, null for those that are not there; 0 to maxattr.
using nlattr_table = const nlattr *const *;

// The kernel's numbers of types.
enum nla_policy_type : u8 {
    NLA_UNSPEC = 0,
    NLA_U8 = 1,
    NLA_U16 = 2,
    NLA_U32 = 3,
    NLA_STRING = 5,
    NLA_NUL_STRING = 10,
    NLA_BINARY = 11,
};

struct nla_policy_row {
    nla_policy_type type;
    u16 length; // the most bytes of NLA_BINARY and NLA_STRING; 0: no bound
};

struct genl_family_record {
    const char *name;
    u8 version;
    u8 maxattr;
    const nla_policy_row *policy; // maxattr + 1 rows
    const u8 *commands;           // in the order in which they are listed to who asks
    u8 command_count;
    const char *group;
    i32 (*doit)(u8 command, nlattr_table attributes);
};

inline constexpr int NETLINK_USERSOCK = 2;

// The one family of the module. 0 or a negative errno.
i32 genl_register_family(const genl_family_record *family);

void *genlmsg_put(sk_buff *skb, u32 portid, u32 sequence, const genl_family_record *family,
                  int flags, u8 command);
void genlmsg_end(sk_buff *skb, void *header);
i32 genlmsg_multicast_allns(const genl_family_record *family, sk_buff *skb, u32 portid, u32 group,
                            gfp_t flags);

// Whether a pointer is one of the errors that functions return in a pointer's place.
inline bool is_err_value(const void *pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer) >= static_cast<std::uintptr_t>(-4095);
}

// A socket of the kernel's own in the initial namespace, of that many groups. Null on failure.
sock *netlink_kernel_create(int protocol, u32 groups);
// Consumes the buffer. 0, or -ESRCH when nobody listens, or another negative errno.
i32 netlink_broadcast(sock *from, sk_buff *skb, u32 portid, u32 group, gfp_t flags);

extern "C" {
int nla_put(sk_buff *skb, int type, int length, const void *data);
}

#include "home/genl.h"
