#include "support/seams.h"

#include "kernel/skb.h"

#include <mutex>

namespace seams {

Record &record() {
    static Record the_record;
    return the_record;
}

namespace {

// Frames may arrive on several threads. A test reads the record when they have ended.
std::mutex recording;

Bytes bytes_of(const sk_buff *skb) {
    return Bytes(skb_data(skb), skb_data(skb) + skb_len(skb));
}

} // namespace

} // namespace seams

// The linker leads each call to its __wrap_ form, and __real_ to the core's own (wrapped.txt).
#define WRAPPED(result, name, symbol, ...)                                                         \
    result name(__VA_ARGS__) asm("__wrap_" symbol);                                                \
    result real##name(__VA_ARGS__) asm("__real_" symbol);                                          \
    result name(__VA_ARGS__)

using seams::bytes_of;
using seams::record;
using seams::recording;

WRAPPED(i32, _flood, "_Z11_tarn_floodP7tarn_ifjPKjP7sk_buffjjhj", tarn_if *port, u32 vid,
        const u32 *except, sk_buff *skb, u32 cos, u32 queue, u8 tx_enable, u32 mask) {
    if (record().pass_on)
        return real_flood(port, vid, except, skb, cos, queue, tx_enable, mask);
    std::optional<std::array<u32, 2>> pair;
    if (except)
        pair = {except[0], except[1]};
    std::lock_guard guard(recording);
    record().order.push_back("flood");
    record().floods.push_back({port, vid, pair, bytes_of(skb), cos, queue, tx_enable, mask});
    if (record().flood_result == 0)
        consume_skb(skb);
    return record().flood_result;
}

WRAPPED(u32, _xmit, "_Z16_tarn_start_xmitP7tarn_ifS0_P7sk_buffjjhbb", tarn_if *port,
        tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue, u8 tx_enable, bool discard_bypass,
        bool tx_option) {
    if (record().pass_on)
        return real_xmit(port, vlan_if, skb, cos, queue, tx_enable, discard_bypass, tx_option);
    std::lock_guard guard(recording);
    record().order.push_back("xmit");
    record().sent.push_back(
        {port, vlan_if, bytes_of(skb), cos, queue, tx_enable, discard_bypass, tx_option});
    if (record().xmit_result == 0)
        consume_skb(skb);
    return record().xmit_result;
}

WRAPPED(u32, _post, "_Z23tarn_pkt_post_to_kernelP7tarn_ifS0_S0_P7sk_buffj", tarn_if *rx_port,
        tarn_if *l2_port, tarn_if *l3_if, sk_buff *skb, u32 vid) {
    if (record().pass_on)
        return real_post(rx_port, l2_port, l3_if, skb, vid);
    std::lock_guard guard(recording);
    record().order.push_back("kernel");
    record().kernel.push_back({rx_port, l2_port, l3_if, bytes_of(skb), vid});
    consume_skb(skb);
    return record().kernel_result;
}

WRAPPED(u32, _stack, "_Z22tarn_stack_pkt_processP7sk_buffjj", sk_buff *skb, u32 vid, u32 queue) {
    if (record().pass_on)
        return real_stack(skb, vid, queue);
    std::lock_guard guard(recording);
    record().stack = {bytes_of(skb), vid, queue};
    if (record().stack_takes != 0)
        consume_skb(skb);
    return record().stack_takes;
}

WRAPPED(u8, _slave, "_Z19tarn_stack_is_slavev") {
    return record().pass_on ? real_slave() : record().stack_slave;
}

WRAPPED(i32, _replicate, "_Z24tarn_pkt_stack_replicateP7sk_buffP7tarn_ifjjjjjjPh", sk_buff *skb,
        tarn_if *rx_port, u32 vid, u32 tag, u32 code, u32 flags, u32 extra, u32 repl_type,
        u8 *replicated) {
    if (record().pass_on)
        return real_replicate(skb, rx_port, vid, tag, code, flags, extra, repl_type, replicated);
    std::lock_guard guard(recording);
    record().order.push_back("replicate");
    record().replicated_at = replicated;
    record().replicated.push_back(
        {rx_port, bytes_of(skb), vid, tag, code, flags, extra, repl_type, *replicated});
    return 0;
}

WRAPPED(i32, _dos, "_Z25tarnfwd_nl_send_dos_matchjjtPKh", u32 ifindex, u32 reason, u16 ethertype,
        const u8 *header) {
    if (record().pass_on)
        return real_dos(ifindex, reason, ethertype, header);
    std::lock_guard guard(recording);
    record().order.push_back("dos");
    record().dos.push_back({ifindex, reason, ethertype, Bytes(header, header + 20)});
    return 0;
}
