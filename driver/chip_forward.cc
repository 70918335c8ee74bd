// A frame as it travels: chip_receive() reads it, decides under the lock, then sends and delivers.
#include "chip_forward.h"

#include "chip_egress.h"
#include "chip_reach.h"
#include "chip_trap.h"
#include "kernel/bytes.h"
#include "kernel/memory.h"
#include "port.h"
#include "tarn/rxtx_hw.h"

namespace {

// What became of one received frame.
struct chip_verdict {
    chip_egress egress;
    u32 ifindex;
    u32 trap; // row, trap_count(): none
    u32 flags;
    bool sampled, new_address, moved_address;
    chip_drop drop; // CHIP_DROPS: none
};

// A port that admits known hosts only knows those it was told of.
bool _is_unadmitted(const chip_frame &frame) {
    if (!(chip.authenticating & chip_bit(frame.slot)))
        return false;
    fdb_entry source = fdb_find(fdb_key(frame.data + 6, frame.vid));
    return source.kind != FDB_STATIC || !(reach_with_groups(source.ports) & chip_bit(frame.slot));
}

bool _is_filtered_type(u32 ethertype) {
    for (u32 type : chip.filter_types)
        if (type != 0 && type == ethertype)
            return true;
    return false;
}

chip_drop _classify(chip_frame &frame) {
    const chip_port &port = chip.ports[frame.slot];
    if (!(chip.up & chip_bit(frame.slot)))
        return CHIP_DROP_LINK;
    if (!frame_read_tag(frame, port.pvid))
        return CHIP_DROP_RUNT;
    if (frame.data[6] & 1)
        return CHIP_DROP_SOURCE;
    frame_read_ip(frame);
    frame.destination = reach_find(frame.data, frame.vid, frame.slot);
    frame.authenticating = _is_unadmitted(frame);
    frame.filtered = _is_filtered_type(frame.ethertype);
    return CHIP_DROPS;
}

void _learn(chip_frame &frame, chip_verdict &verdict) {
    const u8 *source = frame.data + 6;
    if (!(chip.learning & chip_bit(frame.slot)) || frame.authenticating ||
        reach_is_own(source, frame.vid, frame.slot))
        return;
    fdb_learned what = fdb_learn(fdb_key(source, frame.vid), reach_learns_at(frame.slot));
    if (memcmp(frame.data, source, 6) == 0) // a host to itself, which lives where it spoke
        frame.destination = fdb_find(fdb_key(frame.data, frame.vid));
    if (what == FDB_NEW)
        count_in(chip.ports[frame.slot].count.learned, 1);
    if (what == FDB_MOVED)
        count_in(chip.ports[frame.slot].count.moved, 1);
    verdict.new_address = what == FDB_NEW;
    verdict.moved_address = what == FDB_MOVED;
}

// One frame in so many.
bool _is_sampled() {
    if (chip.sample_rate == 0)
        return false;
    u32 turn = read_once(chip.sample_turn) + 1;
    write_once(chip.sample_turn, turn >= chip.sample_rate ? 0 : turn);
    return turn >= chip.sample_rate;
}

bool _is_on(chip_report report) {
    return chip.traps[trap_of_report(report)] != CHIP_TRAP_OFF;
}

// What the frame would say of its end if nothing else takes it.
chip_drop _reason_to_stay(const chip_frame &frame) {
    if (frame.destination.kind == FDB_OWN)
        return CHIP_DROP_OWN;
    return frame_is_reserved(frame) ? CHIP_DROP_RESERVED : CHIP_DROP_NOWHERE;
}

void _decide(chip_frame &frame, chip_verdict &verdict) {
    verdict.trap = trap_count();
    verdict.drop = _classify(frame);
    if (verdict.drop != CHIP_DROPS)
        return;
    u32 trap = trap_find(frame);
    bool trapped = trap < trap_count();
    if (trapped && trap_row(trap).of_the_link) {
        verdict.trap = trap;
        return;
    }
    bool learns;
    verdict.drop = reach_in(frame, &learns);
    if (learns)
        _learn(frame, verdict);
    verdict.new_address &= _is_on(CHIP_NEW_ADDRESS);
    verdict.moved_address &= _is_on(CHIP_MOVED_ADDRESS);
    if (verdict.drop != CHIP_DROPS)
        return;

    verdict.trap = trap;
    verdict.sampled = _is_sampled() && _is_on(CHIP_SAMPLE);
    if (trapped && chip.traps[trap] == CHIP_TRAP_ONLY)
        return;
    u64 from = chip.ports[frame.slot].group;
    u64 ports = forward_ports(frame, from, chip.unknown_multicast_flood);
    u32 cos = frame.tagged ? frame_byte(frame, 14) >> 5 : 0;
    egress_gather(verdict.egress, ports, frame.vid, cos);
    if (verdict.egress.ports == 0 && !trapped)
        verdict.drop = _reason_to_stay(frame);
}

// Of all ports of the VLAN those that the destination asks for.
u64 _wanted(const chip_frame &frame, u64 all, bool flood_groups) {
    if (frame.destination.kind == FDB_OWN || frame_is_reserved(frame))
        return 0;
    if (frame.destination.kind != FDB_NONE)
        return reach_with_groups(frame.destination.ports) & all;
    if (!frame_is_group(frame) || frame_is_broadcast(frame))
        return all;
    return flood_groups || frame_is_to_link(frame) ? all : 0;
}

struct chip_delivery {
    u32 slot, ifindex, vid;
    u32 row, flags;
};

// Hands the frame over to the core.
void _deliver_one(void *context, sk_buff *skb) {
    const chip_delivery &to = *static_cast<const chip_delivery *>(context);
    const chip_trap &trap = trap_row(to.row);
    count_in(chip.trap_hits[to.row], 1);
    tarn_rx_meta meta{};
    meta.debug = 1;
    meta.queue = trap.queue;
    meta.code = trap.code;
    meta.cpu_code = trap.cpu_code;
    meta.flags = trap.flags | to.flags;
    meta.flood_except[0] = ~0u;          // no exception
    memset(skb_cb(skb), 0, SKB_CB_SIZE); // the last word counts as the port the frame is bound to
    if (rxtx_hw_packet_recv(skb, to.ifindex, to.vid, &meta) == 0)
        return;
    chip_count_drop(to.slot, CHIP_DROP_CPU);
    kfree_skb(skb);
}

void _deliver(const chip_frame &frame, const chip_verdict &verdict, sk_buff *skb, u32 row,
              u32 flags) {
    if (!skb)
        return chip_count_drop(frame.slot, CHIP_DROP_MEMORY);
    chip_delivery to{frame.slot, verdict.ifindex, frame.vid, row, flags};
    if (verdict.egress.work)
        return chip_port_finish(skb, verdict.egress.work, _deliver_one, &to);
    _deliver_one(&to, skb);
}

// Reports end in the core by themselves, so each is a copy of its own beside what else becomes of
// the frame. News of a move travels with the frame when that goes to the CPU anyway.
void _report(const chip_frame &frame, chip_verdict &verdict, const sk_buff *skb) {
    if (verdict.sampled)
        _deliver(frame, verdict, skb_copy(skb, gfp_here()), trap_of_report(CHIP_SAMPLE), 0);
    if (verdict.new_address)
        _deliver(frame, verdict, skb_copy(skb, gfp_here()), trap_of_report(CHIP_NEW_ADDRESS), 0);
    if (!verdict.moved_address)
        return;
    u32 row = trap_of_report(CHIP_MOVED_ADDRESS);
    if (verdict.trap == trap_count())
        return _deliver(frame, verdict, skb_copy(skb, gfp_here()), row, 0);
    count_in(chip.trap_hits[row], 1);
    verdict.flags = trap_row(row).flags;
}

// A tag of VID 0 carries a priority only: on other ports the frame is one of the VLAN.
void _name_vlan(const chip_frame &frame, sk_buff *skb) {
    if (!frame.tagged)
        return;
    u8 *tci = skb_data(skb) + 14;
    tci[0] = static_cast<u8>((tci[0] & 0xF0) | frame.vid >> 8);
    tci[1] = static_cast<u8>(frame.vid);
}

// The frame goes on to the ports and a copy of its own to the CPU, which rewrites it.
void _carry_out(const chip_frame &frame, chip_verdict &verdict, sk_buff *skb) {
    _report(frame, verdict, skb);
    bool trapped = verdict.trap < trap_count();
    if (verdict.egress.ports == 0 && trapped)
        return _deliver(frame, verdict, skb, verdict.trap, verdict.flags);
    if (verdict.egress.ports == 0)
        return kfree_skb(skb);
    sk_buff *copy = trapped ? skb_copy(skb, gfp_here()) : nullptr;
    _name_vlan(frame, skb);
    egress_send(verdict.egress, skb, frame.tagged);
    if (trapped)
        _deliver(frame, verdict, copy, verdict.trap, verdict.flags);
}

} // namespace

u64 forward_ports(const chip_frame &frame, u64 from, bool flood_groups) {
    u64 all = _wanted(frame, reach_out(frame.vid), flood_groups) & ~from;
    if (from != 0)
        all = chip.routed & chip_bit(frame.slot) ? 0 : all & ~chip.routed;
    return reach_one_of_each(all, frame.data);
}

void chip_receive(chip_device *device, uint32_t slot, sk_buff *skb) {
    chip_receive_unfinished(device, slot, skb, nullptr);
}

void chip_receive_unfinished(chip_device *device, uint32_t slot, sk_buff *skb,
                             const chip_work *work) {
    if (slot >= CHIP_PORTS)
        return kfree_skb(skb);
    chip_frame frame{};
    frame.data = skb_data(skb);
    frame.length = skb_len(skb);
    frame.slot = slot;
    chip_verdict verdict;
    verdict.egress.ports = 0;
    verdict.egress.copies = 0;
    verdict.flags = 0;
    verdict.sampled = verdict.new_address = verdict.moved_address = false;

    read_lock_bh(&chip.lock);
    bool known = chip.ports[slot].device == device;
    if (known) {
        verdict.ifindex = chip.ports[slot].ifindex;
        count_in(chip.ports[slot].count.rx, 1);
        _decide(frame, verdict);
    }
    read_unlock_bh(&chip.lock);
    verdict.egress.work = work;

    if (known && verdict.drop != CHIP_DROPS)
        chip_count_drop(slot, verdict.drop);
    // A dropped frame may still be a sample, or news of its source.
    if (known)
        return _carry_out(frame, verdict, skb);
    kfree_skb(skb);
}
