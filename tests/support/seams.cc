#include "support/seams.h"

#include "control/tarnfwd_nl_event.h"
#include "pkt/pkt_calls.h"
#include "pkt/pkt_flood.h"
#include "pkt/pkt_post.h"
#include "pkt/pkt_tx.h"

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

using seams::bytes_of;
using seams::record;
using seams::recording;

i32 _tarn_flood(tarn_if *port, u32 vid, const u32 *except, sk_buff *skb, u32 cos, u32 queue,
                u8 tx_enable, u32 mask) {
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

u32 _tarn_start_xmit(tarn_if *port, tarn_if *vlan_if, sk_buff *skb, u32 cos, u32 queue,
                     u8 tx_enable, bool discard_bypass, bool tx_option) {
    std::lock_guard guard(recording);
    record().order.push_back("xmit");
    record().sent.push_back(
        {port, vlan_if, bytes_of(skb), cos, queue, tx_enable, discard_bypass, tx_option});
    if (record().xmit_result == 0)
        consume_skb(skb);
    return record().xmit_result;
}

u32 tarn_pkt_post_to_kernel(tarn_if *rx_port, tarn_if *l2_port, tarn_if *l3_if, sk_buff *skb,
                            u32 vid) {
    std::lock_guard guard(recording);
    record().order.push_back("kernel");
    record().kernel.push_back({rx_port, l2_port, l3_if, bytes_of(skb), vid});
    consume_skb(skb);
    return record().kernel_result;
}

u32 tarn_stack_pkt_process(sk_buff *skb, u32 vid, u32 queue) {
    std::lock_guard guard(recording);
    record().stack = {bytes_of(skb), vid, queue};
    if (record().stack_takes != 0)
        consume_skb(skb);
    return record().stack_takes;
}

u8 tarn_stack_is_slave() {
    return record().stack_slave;
}

i32 tarn_pkt_stack_replicate(sk_buff *skb, tarn_if *rx_port, u32 vid, u32 tag, u32 code, u32 flags,
                             u32 extra, u32 repl_type, u8 *replicated) {
    std::lock_guard guard(recording);
    record().order.push_back("replicate");
    record().replicated_at = replicated;
    record().replicated.push_back(
        {rx_port, bytes_of(skb), vid, tag, code, flags, extra, repl_type, *replicated});
    return 0;
}

i32 tarnfwd_nl_send_dos_match(u32 ifindex, u32 reason, u16 ethertype, const u8 *header) {
    std::lock_guard guard(recording);
    record().order.push_back("dos");
    record().dos.push_back({ifindex, reason, ethertype, Bytes(header, header + 20)});
    return 0;
}
