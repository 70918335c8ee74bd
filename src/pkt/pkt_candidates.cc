#include "pkt/pkt_candidates.h"

#include "kernel/locks.h"
#include "kernel/memory.h"
#include "kernel/once.h"
#include "kernel/percpu.h"
#include "pkt/frame.h"
#include "pkt/pkt_cpu.h"

namespace {

constexpr u32 WORD_BITS = 32;
constexpr u32 FACTS = 32;

static_assert(REDIRECT_PLACES + 1 == process_packet_rxs.size());
static_assert(MODIFY_TX_PLACES + 1 == process_packet_modify_tx.size());

constinit rwlock_t _lock{};

// Who changes frames that come like that: an index of two bits.
constexpr u32 WITH_FLAGS = 1, WITH_CODE = 2, WAYS = 4;
constinit u32 _modifiers[WAYS] = {};
constinit u32 _tx_modifiers = 0;

// A bit for each place of process_packet_rxs. Two words, since not every machine reads a longer one
// whole.
struct redirect_places {
    u32 words[2];
};

// Who is asked, by class; who of them can decide, by fact.
constinit redirect_places _asked[FRAME_CLASSES] = {};
constinit redirect_places _concerned[FACTS] = {};

// How many frames have ended there since the last look, by row; and what of pkt_cpu was summed up.
constinit u32 _ended[REDIRECT_PLACES][FRAME_ROWS] = {};
constinit pkt_cpu_words _summed_up = {};

packet_redirect *_at(u32 place) {
    return packet_redirects[process_packet_rxs[place]];
}

bool _has(const redirect_places &set, u32 place) {
    return set.words[place / WORD_BITS] >> place % WORD_BITS & 1;
}

void _add(redirect_places *set, u32 place) {
    set->words[place / WORD_BITS] |= 1u << place % WORD_BITS;
}

void _publish(redirect_places *set, const redirect_places &now) {
    for (u32 word = 0; word < 2; word++)
        write_once(set->words[word], now.words[word]);
}

void _add(u32 &sum, u32 more) {
    write_once(sum, read_once(sum) + more);
}

// Who was asked about frames of that row saw all that ended at its place or behind it. How many
// frames there were.
u32 _count_asked(u32 row) {
    u32 seen = percpu_grown(&pkt_cpu->passed[row], &_summed_up.passed[row]);
    for (u32 place = REDIRECT_PLACES; place-- > 0;) {
        seen += _ended[place][row];
        packet_redirect *redirect = _at(place);
        if (redirect && _has(_asked[row / 2], place))
            _add(redirect->inspects, seen);
    }
    return seen;
}

// The fact, or none.
u32 _if(bool holds, frame_fact fact) {
    return holds ? u32{fact} : 0;
}

bool _modifies(const packet_redirect *redirect) {
    return redirect && read_once(redirect->enabled) && redirect->modify_rx;
}

void _count_modified_rx(u32 frames) {
    for (const u8 *slot = process_packet_modify_rx.data(); *slot != REDIRECT_ORDER_END; slot++)
        if (packet_redirect *redirect = packet_redirects[*slot]; _modifies(redirect))
            _add(redirect->modify_rx_inspects, frames);
}

// Those in front of who took a frame were asked about it, and all of them when nobody did.
void _count_modified_tx() {
    u32 seen = 0;
    for (u32 place = MODIFY_TX_PLACES + 1; place-- > 0;) {
        seen += percpu_grown(&pkt_cpu->sent[place], &_summed_up.sent[place]);
        if (_tx_modifiers >> place & 1)
            _add(packet_redirects[process_packet_modify_tx[place]]->modify_tx_inspects, seen);
    }
}

void _sum_up() {
    if (!pkt_cpu)
        return;
    for (u32 place = 0; place < REDIRECT_PLACES; place++)
        if (packet_redirect *redirect = _at(place))
            pkt_redirect_sum_up(redirect, &_ended[place]);
    u32 with_port = 0;
    for (u32 row = 0; row < FRAME_ROWS; row++) {
        u32 frames = _count_asked(row);
        with_port += row % 2 == 0 ? frames : 0;
    }
    _count_modified_rx(with_port);
    _count_modified_tx();
}

bool _skips(const packet_redirect *redirect, u32 of) {
    return redirect->skip_protocols & of << 1;
}

redirect_places _asked_about(u32 of) {
    redirect_places asked{};
    for (u32 place = 0; place < REDIRECT_PLACES; place++) {
        const packet_redirect *redirect = _at(place);
        if (redirect && read_once(redirect->enabled) && !_skips(redirect, of))
            _add(&asked, place);
    }
    return asked;
}

redirect_places _concerned_with(u32 fact) {
    redirect_places concerned{};
    for (u32 place = 0; place < REDIRECT_PLACES; place++) {
        const packet_redirect *redirect = _at(place);
        if (redirect && redirect->concerns >> fact & 1)
            _add(&concerned, place);
    }
    return concerned;
}

u32 _modifiers_of(u32 way) {
    const u32 facts =
        FRAME_ANY | _if(way & WITH_FLAGS, FRAME_TRAP_FLAGS) | _if(way & WITH_CODE, FRAME_TRAP_CODE);
    u32 found = 0;
    for (u32 place = 0; process_packet_modify_rx[place] != REDIRECT_ORDER_END; place++) {
        const packet_redirect *redirect = packet_redirects[process_packet_modify_rx[place]];
        if (_modifies(redirect) && (redirect->modify_concerns & facts))
            found |= 1u << place;
    }
    return found;
}

u32 _tx_modifiers_now() {
    u32 found = 0;
    for (u32 place = 0; place < MODIFY_TX_PLACES; place++) {
        const packet_redirect *redirect = packet_redirects[process_packet_modify_tx[place]];
        if (redirect && read_once(redirect->enabled) && redirect->modify_tx)
            found |= 1u << place;
    }
    return found;
}

void _renew() {
    write_once(_tx_modifiers, _tx_modifiers_now());
    for (u32 way = 0; way < WAYS; way++)
        write_once(_modifiers[way], _modifiers_of(way));
    for (u32 of = 0; of < FRAME_CLASSES; of++)
        _publish(&_asked[of], _asked_about(of));
    for (u32 fact = 0; fact < FACTS; fact++)
        _publish(&_concerned[fact], _concerned_with(fact));
}

u32 _type_facts(u32 ethertype) {
    switch (ethertype) {
    case ETH_P_IP:
        return FRAME_IPV4;
    case ETH_P_IPV6:
        return FRAME_IPV6;
    case ETH_P_ARP:
        return FRAME_ARP;
    case ETH_P_RARP:
    case ETH_P_PPP_DISC:
    case ETH_P_PPP_SES:
    case ETH_P_1588:
    case 0x8892: // PROFINET
    case 0x8902: // CFM
    case 0x9000: // loop test
        return FRAME_OF_PROTOCOL;
    default:
        return 0;
    }
}

// The last three bytes of an address that IEEE 802.1 keeps for bridges.
u32 _bridge_facts(const u8 *group) {
    switch (u32{group[0]} << 16 | u32{group[1]} << 8 | group[2]) {
    case 0x00:
        return FRAME_TO_STP;
    case 0x02:
        return FRAME_TO_LACP;
    default:
        return FRAME_TO_BRIDGES;
    }
}

u32 _destination_facts(const u8 *destination) {
    switch (u32{destination[0]} << 16 | u32{destination[1]} << 8 | destination[2]) {
    case 0x0180C2:
        return _bridge_facts(destination + 3);
    case 0x01154E: // MRP
    case 0x01000C: // UDLD
    case 0x09002B: // IS-IS
    case 0x00E02B: // RYKE
    case 0x0000F4: // LDF
    case 0x000C25: // BEFD
        return FRAME_TO_PROTOCOL;
    default:
        return 0;
    }
}

u32 _source_facts(const u8 *source) {
    u32 first;
    u16 last;
    memcpy(&first, source, sizeof(first));
    memcpy(&last, source + sizeof(first), sizeof(last));
    return _if((source[0] & 1) || (first | last) == 0, FRAME_UNREAL_SOURCE);
}

} // namespace

constinit pkt_cpu_words *pkt_cpu = nullptr;

bool pkt_cpu_make() {
    if (!pkt_cpu)
        pkt_cpu = alloc_percpu_gfp<pkt_cpu_words>(gfp_here());
    return pkt_cpu;
}

void pkt_candidates_init() {
    rwlock_init(&_lock, "redirect_candidates_lock");
}

u32 pkt_frame_facts(const tarn_pkt_info *info, const u8 *addresses) {
    return FRAME_ANY | _type_facts(info->ethertype) | _destination_facts(addresses) |
           _source_facts(addresses + ETH_SRC_OFFSET) | _if(info->mac_multicast, FRAME_TO_GROUP) |
           _if(info->flags != 0, FRAME_TRAP_FLAGS) | _if(info->code != 0, FRAME_TRAP_CODE) |
           _if(!info->rx_port, FRAME_WITHOUT_PORT);
}

u64 pkt_candidates(u32 facts) {
    const redirect_places &asked = _asked[pkt_frame_row(facts) / 2];
    u32 low = 0, high = 0;
    for (; facts != 0; facts &= facts - 1) {
        const redirect_places &concerned = _concerned[__builtin_ctz(facts)];
        low |= read_once(concerned.words[0]);
        high |= read_once(concerned.words[1]);
    }
    low &= read_once(asked.words[0]);
    high &= read_once(asked.words[1]);
    return u64{high} << WORD_BITS | low;
}

u32 pkt_modifiers(const tarn_rx_meta *meta) {
    return read_once(_modifiers[(meta->flags ? WITH_FLAGS : 0) | (meta->code ? WITH_CODE : 0)]);
}

u32 pkt_tx_modifiers() {
    return read_once(_tx_modifiers);
}

void pkt_candidates_change_begin() {
    write_lock_bh(&_lock);
    _sum_up();
}

void pkt_candidates_change_end() {
    _renew();
    write_unlock_bh(&_lock);
}

void pkt_candidates_sum_up() {
    write_lock_bh(&_lock);
    _sum_up();
    write_unlock_bh(&_lock);
}
