#include "support/tx_seams.h"

#include "kernel/netdev.h"
#include "kernel/skb.h"

namespace tx_seams {

Answers &answers() {
    static Answers the_answers;
    return the_answers;
}

} // namespace tx_seams

using tx_seams::answers;

// The linker leads each call to its __wrap_ form, and __real_ to the core's own (wrapped.txt).
#define WRAPPED(result, name, symbol, ...)                                                         \
    result name(__VA_ARGS__) asm("__wrap_" symbol);                                                \
    result real##name(__VA_ARGS__) asm("__real_" symbol);                                          \
    result name(__VA_ARGS__)

WRAPPED(i32, _mgmt_vid, "_Z28tarn_stack_mgmt_vlan_get_vidPj", u32 *vid) {
    if (!answers().management_vlan)
        return real_mgmt_vid(vid);
    *vid = *answers().management_vlan;
    return 0;
}

WRAPPED(i32, _stack_tx, "_Z18_tarn_stack_drv_txP7sk_buffj", sk_buff *skb, u32 reserved) {
    if (!answers().management_vlan)
        return real_stack_tx(skb, reserved);
    answers().stack_sent.push_back({Bytes(skb_data(skb), skb_data(skb) + skb_len(skb)), reserved});
    consume_skb(skb);
    return 0;
}

WRAPPED(u32, _outer, "_Z30tarn_vlan_stack_outer_vlan_getj", u32 vid) {
    if (answers().outer_vlans.empty())
        return real_outer(vid);
    auto found = answers().outer_vlans.find(vid);
    return found == answers().outer_vlans.end() ? 0 : found->second;
}

WRAPPED(i32, _socket_post, "_Z20tarn_socket_post_skbP4sockP7sk_buff", sock *sk, sk_buff *skb) {
    return answers().socket_post ? answers().socket_post(sk, skb) : real_socket_post(sk, skb);
}

WRAPPED(net_device_stats *, _stats, "_Z22tarn_eth_dev_get_statsP10net_device", net_device *device) {
    if (answers().counters_asked)
        answers().counters_asked(device);
    return real_stats(device);
}

WRAPPED(unsigned long, _to_user, "_Z12copy_to_userPKvS0_m", const void *to, const void *from,
        unsigned long count) {
    return answers().user_memory_read_only ? count : real_to_user(to, from, count);
}
