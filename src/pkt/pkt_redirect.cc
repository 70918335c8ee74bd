#include "pkt/pkt_redirect.h"

#include "kernel/bytes.h"
#include "kernel/errno.h"
#include "kernel/log.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "kernel/percpu.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_cpu.h"

constinit std::array<packet_redirect *, REDIRECT_SLOTS> packet_redirects{};

constinit const std::array<const char *, STACK_REPL_TYPES> stack_repl_strings{
    "Default", "STP",      "RYKE",  "MRP",   "CFM",   "LACP",
    "ISIS",    "Profinet", "Mcast", "sFlow", "BcExc", "PortAuth"};

// Slots 1, 2, 4 and 11 only modify. Slot 48 is free and slot 27 starts empty: both keep their
// place.
constinit const std::array<u8, 48> process_packet_rxs{
    49, 50, 28, 8,  3,  31, 5,  6,  0,  9,  10, 12, 7,  13, 14, 19,
    15, 16, 17, 23, 22, 18, 20, 21, 24, 25, 26, 29, 27, 30, 32, 33,
    34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, REDIRECT_ORDER_END};
// Slot 45 has no such hook and is passed over; its entry is kept on purpose.
constinit const std::array<u8, 12> process_packet_modify_rx{45, 1,  2,  31, 4,  9,
                                                            11, 40, 41, 42, 25, REDIRECT_ORDER_END};
constinit const std::array<u8, 6> process_packet_modify_tx{0, 39, 9, 21, 30, REDIRECT_ORDER_END};
constinit const std::array<u8, 10> process_packet_rxs_ip{0,  9,  7,  30, 32,
                                                         33, 36, 38, 41, REDIRECT_ORDER_END};
constinit const std::array<u8, 5> process_packet_rxs_eth{7, 30, 19, 32, REDIRECT_ORDER_END};

namespace {

constinit char _hidden[REDIRECT_NAME_SIZE] = {}; // ended in any case

bool _is_hidden(const char *name) {
    for (u32 i = 0; i < REDIRECT_NAME_SIZE; i++) {
        if (name[i] != read_once(_hidden[i]))
            return false;
        if (!name[i])
            break;
    }
    return true;
}

void _zero_counters(packet_redirect *redirect) {
    write_once(redirect->inspects, 0);
    write_once(redirect->stops, 0);
    for (u32 &reason : redirect->stop_reasons)
        write_once(reason, 0);
    write_once(redirect->kernel, 0);
    write_once(redirect->userspace, 0);
    write_once(redirect->resend_l2, 0);
    write_once(redirect->stack_rep, 0);
    write_once(redirect->flood_l2, 0);
    write_once(redirect->modify_rx_inspects, 0);
    write_once(redirect->modify_tx_inspects, 0);
    write_once(redirect->kernel_port, 0);
}

void _add(u32 &sum, u32 more) {
    write_once(sum, read_once(sum) + more);
}

void _add_grown(u32 &sum, const u32 *counted, u32 *summed_up) {
    _add(sum, percpu_grown(counted, summed_up));
}

// How many frames of the row ended there.
u32 _sum_up_row(packet_redirect *redirect, u32 row) {
    u32 ended = 0;
    for (u32 how = 0; how < WALK_ENDS; how++) {
        u32 grown =
            percpu_grown(&redirect->counts->ended[row][how], &redirect->summed_up->ended[row][how]);
        ended += grown;
        if (how < REDIRECT_REASONS)
            _add(redirect->stop_reasons[how], grown);
        if (how != STOP_REFUSED)
            _add(redirect->stops, grown);
    }
    return ended;
}

// A record for ever, with what it has summed up; records of init functions lie on small stacks.
struct _registered {
    packet_redirect record;
    redirect_counts summed_up;
};

// A copy with counters of its own; null without memory.
packet_redirect *_copy_of(const packet_redirect *record) {
    auto *made = static_cast<_registered *>(__kmalloc(sizeof(_registered), gfp_here()));
    redirect_counts *counts =
        made && pkt_cpu_make() ? alloc_percpu_gfp<redirect_counts>(gfp_here()) : nullptr;
    if (!counts) {
        kfree(made);
        return nullptr;
    }
    made->record = *record;
    memset(&made->summed_up, 0, sizeof(made->summed_up));
    made->record.counts = counts;
    made->record.summed_up = &made->summed_up;
    return &made->record;
}

// The counters at one moment: a view that takes long to print still shows numbers that belong
// together.
struct _snapshot {
    u32 inspects, userspace, kernel, resend_l2, flood_l2, stack_rep, kernel_port, stops;
    u32 modify_rx_inspects, modify_tx_inspects;
    std::array<u32, REDIRECT_REASONS> stop_reasons;
    bool enabled;

    explicit _snapshot(const packet_redirect *from)
        : inspects(read_once(from->inspects)), userspace(read_once(from->userspace)),
          kernel(read_once(from->kernel)), resend_l2(read_once(from->resend_l2)),
          flood_l2(read_once(from->flood_l2)), stack_rep(read_once(from->stack_rep)),
          kernel_port(read_once(from->kernel_port)), stops(read_once(from->stops)),
          modify_rx_inspects(read_once(from->modify_rx_inspects)),
          modify_tx_inspects(read_once(from->modify_tx_inspects)), stop_reasons{},
          enabled(read_once(from->enabled) != 0) {
        for (u32 reason = 0; reason < REDIRECT_REASONS; reason++)
            stop_reasons[reason] = read_once(from->stop_reasons[reason]);
    }
};

void _print_rx(seq_file *view, const char *name, const _snapshot &now) {
    seq_printf(view, "%.20s_inspects: %d\n", name, static_cast<i32>(now.inspects));
    seq_printf(view, "%.20s_userspace: %d\n", name, static_cast<i32>(now.userspace));
    seq_printf(view, "%.20s_kernel: %d\n", name, static_cast<i32>(now.kernel));
    seq_printf(view, "%.20s_resend_l2: %d\n", name, static_cast<i32>(now.resend_l2));
    seq_printf(view, "%.20s_flood_l2: %d\n", name, static_cast<i32>(now.flood_l2));
    seq_printf(view, "%.20s_stack_rep: %d\n", name, static_cast<i32>(now.stack_rep));
    seq_printf(view, "%.20s_kernel_port: %d\n", name, static_cast<i32>(now.kernel_port));
    seq_printf(view, "%.20s_stops: %d", name, static_cast<i32>(now.stops));
    // Reason 0 is counted but left out here, on purpose.
    for (u32 reason = 1; reason < REDIRECT_REASONS; reason++)
        if (now.stop_reasons[reason] != 0)
            seq_printf(view, " %d:%d", static_cast<i32>(reason),
                       static_cast<i32>(now.stop_reasons[reason]));
    seq_printf(view, "\n");
}

void _print_one(u32 mode, seq_file *view, const packet_redirect *redirect) {
    const char *name = redirect->name;
    _snapshot now(redirect);

    if (mode == REDIRECT_COUNTERS_MODIFY_RX && redirect->modify_rx && now.enabled)
        seq_printf(view, "%.20s_modify_rx_inspects: %d\n", name,
                   static_cast<i32>(now.modify_rx_inspects));
    else if (mode == REDIRECT_COUNTERS_MODIFY_TX && redirect->modify_tx && now.enabled)
        seq_printf(view, "%.20s_modify_tx_inspects: %d\n", name,
                   static_cast<i32>(now.modify_tx_inspects));
    else if (mode == REDIRECT_COUNTERS_RX && now.enabled)
        _print_rx(view, name, now);
    else
        // A slot that merely lacks the hook reads the same in modes 0 and 2, on purpose.
        seq_printf(view, "%.20s_inspects: %d DISABLED\n", name, static_cast<i32>(now.inspects));
}

const u8 *_order_of(u32 mode) {
    switch (mode) {
    case REDIRECT_COUNTERS_MODIFY_RX:
        return process_packet_modify_rx.data();
    case REDIRECT_COUNTERS_RX:
        return process_packet_rxs.data();
    case REDIRECT_COUNTERS_MODIFY_TX:
        return process_packet_modify_tx.data();
    default:
        return nullptr;
    }
}

} // namespace

i32 tarn_pkt_register_packet_redirection(const packet_redirect *record, u32 index) {
    if (index >= REDIRECT_SLOTS) {
        pr_crit("Failed to register packet type %.20s index out of bounds\n", record->name);
        return -EINVAL;
    }
    if (record->name[0] == '\0') {
        pr_crit("No name specified for packet_redirect\n");
        return -EINVAL;
    }
    if (!record->match) {
        pr_crit("Match function not specified %.20s\n", record->name);
        return -EINVAL;
    }
    if (!record->post) {
        pr_crit("Post to userspace function not specified %.20s\n", record->name);
        return -EINVAL;
    }
    if (packet_redirects[index]) {
        pr_crit("Redirect index already registered for %.20s %.20s\n",
                packet_redirects[index]->name, record->name);
        return -EINVAL;
    }

    packet_redirect *copy = _copy_of(record);
    if (!copy) {
        pr_crit("Failed to register packet type %.20s due to insufficient memory\n", record->name);
        return -ENOMEM;
    }
    _zero_counters(copy);
    copy->enabled = 1;
    pkt_candidates_change_begin();
    packet_redirects[index] = copy;
    pkt_candidates_change_end();
    return 0;
}

i32 enable_redirect(u32 index, u8 value) {
    if (index >= REDIRECT_SLOTS || !packet_redirects[index])
        return -EINVAL;
    pkt_candidates_change_begin();
    write_once(packet_redirects[index]->enabled, value);
    pkt_candidates_change_end();
    return 0;
}

i32 enable_redirect_by_name(const char *name, u8 value) {
    i32 result = -EINVAL;
    pkt_candidates_change_begin();
    for (packet_redirect *redirect : packet_redirects) {
        if (!redirect || strncmp(redirect->name, name, REDIRECT_NAME_SIZE) != 0)
            continue;
        write_once(redirect->enabled, value);
        result = 0;
    }
    pkt_candidates_change_end();
    return result;
}

sk_buff *tarn_pkt_packet_post_dummy(sk_buff *skb, tarn_post_info *) {
    return skb;
}

// What was counted up to now is summed up, and forgotten with the sum.
void tarn_pkt_redirect_clear_counters(u32 index) {
    pkt_candidates_change_begin();
    if (index < REDIRECT_SLOTS && packet_redirects[index])
        _zero_counters(packet_redirects[index]);
    pkt_candidates_change_end();
}

void pkt_redirect_sum_up(packet_redirect *redirect, u32 (*ended)[FRAME_ROWS]) {
    const redirect_counts *counts = redirect->counts;
    redirect_counts *before = redirect->summed_up;
    for (u32 row = 0; row < FRAME_ROWS; row++)
        (*ended)[row] = _sum_up_row(redirect, row);
    _add_grown(redirect->kernel, &counts->kernel, &before->kernel);
    _add_grown(redirect->userspace, &counts->userspace, &before->userspace);
    _add_grown(redirect->resend_l2, &counts->resend_l2, &before->resend_l2);
    _add_grown(redirect->stack_rep, &counts->stack_rep, &before->stack_rep);
    _add_grown(redirect->flood_l2, &counts->flood_l2, &before->flood_l2);
    _add_grown(redirect->kernel_port, &counts->kernel_port, &before->kernel_port);
}

void skip_protocol_set(const char *name) {
    u32 length = 0;
    for (; length < REDIRECT_NAME_SIZE - 1 && name[length]; length++)
        write_once(_hidden[length], name[length]);
    for (; length < REDIRECT_NAME_SIZE; length++)
        write_once(_hidden[length], '\0');
}

i32 print_redirect_counters(u32 mode, seq_file *view) {
    const u8 *slot = _order_of(mode);
    if (!slot)
        return 0;
    pkt_candidates_sum_up();
    for (; *slot != REDIRECT_ORDER_END; slot++) {
        const packet_redirect *redirect = packet_redirects[*slot];
        if (redirect && !_is_hidden(redirect->name))
            _print_one(mode, view, redirect);
    }
    return 0;
}

i32 print_redirect_protocols(u8 enabled, seq_file *view) {
    for (const packet_redirect *redirect : packet_redirects)
        if (redirect && read_once(redirect->enabled) == enabled)
            seq_printf(view, "%.20s\n", redirect->name);
    return 0;
}
