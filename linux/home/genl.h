#pragma once

#include "genl_glue.h"

inline i32 genl_register_family(const genl_family_record *family) {
    return tarn_k_genl_register_family(family);
}
inline void *genlmsg_put(sk_buff *skb, u32 portid, u32 sequence, const genl_family_record *,
                         int flags, u8 command) {
    return tarn_k_genlmsg_put(skb, portid, sequence, flags, command);
}
inline void genlmsg_end(sk_buff *skb, void *header) {
    tarn_k_genlmsg_end(skb, header);
}
inline i32 genlmsg_multicast_allns(const genl_family_record *, sk_buff *skb, u32 portid, u32 group,
                                   gfp_t) {
    return tarn_k_genlmsg_multicast_allns(skb, portid, group);
}
inline sock *netlink_kernel_create(int protocol, u32 groups) {
    return tarn_k_netlink_kernel_create(protocol, groups);
}
inline i32 netlink_broadcast(sock *from, sk_buff *skb, u32 portid, u32 group, gfp_t flags) {
    return tarn_k_netlink_broadcast(from, skb, portid, group, flags);
}
