#include "pkt/pkt_candidates.h"

#include "kernel/locks.h"
#include "kernel/once.h"
#include "pkt/frame.h"
#include "pkt/pkt_redirect.h"

namespace {

constexpr u32 _WORD_BITS = 32;
constexpr u32 _FACTS = 32;

static_assert(REDIRECT_PLACES + 1 == process_packet_rxs.size());

constinit rwlock_t _lock{};

// Who is asked, by class; who of them can decide, by fact.
constinit redirect_places _asked[FRAME_CLASSES] = {};
constinit redirect_places _concerned[_FACTS] = {};

// How many frames ended where; and how many of them `inspects` has in it already. The first only
// grows, so a count that is lost to another CPU is lost alone.
constinit u32 _ended[FRAME_CLASSES][REDIRECT_PLACES] = {};
constinit u32 _summed_up[FRAME_CLASSES][REDIRECT_PLACES] = {};

packet_redirect *_at(u32 place) {
    return packet_redirects[process_packet_rxs[place]];
}

bool _has(const redirect_places &set, u32 place) {
    return set.words[place / _WORD_BITS] >> place % _WORD_BITS & 1;
}

void _add(redirect_places *set, u32 place) {
    set->words[place / _WORD_BITS] |= 1u << place % _WORD_BITS;
}

void _publish(redirect_places *set, const redirect_places &now) {
    for (u32 word = 0; word < 2; word++)
        write_once(set->words[word], now.words[word]);
}

// Who was asked about frames of that class saw all that ended at its place or behind it.
void _sum_up_class(u32 of) {
    u32 seen = 0;
    for (u32 place = REDIRECT_PLACES; place-- > 0;) {
        u32 ended = read_once(_ended[of][place]);
        seen += ended - _summed_up[of][place];
        _summed_up[of][place] = ended;
        packet_redirect *redirect = _at(place);
        if (redirect && _has(_asked[of], place))
            write_once(redirect->inspects, read_once(redirect->inspects) + seen);
    }
}

void _sum_up() {
    for (u32 of = 0; of < FRAME_CLASSES; of++)
        _sum_up_class(of);
}

bool _skips(const packet_redirect *redirect, u32 of) {
    return of != FRAME_CLASS_OTHER && (redirect->skip_protocols & 1u << of);
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

void _renew() {
    for (u32 of = 0; of < FRAME_CLASSES; of++)
        _publish(&_asked[of], _asked_about(of));
    for (u32 fact = 0; fact < _FACTS; fact++)
        _publish(&_concerned[fact], _concerned_with(fact));
}

// The fact, or none.
u32 _if(bool holds, frame_fact fact) {
    return holds ? u32{fact} : 0;
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

u32 _destination_facts(const u8 *destination) {
    switch (u32{destination[0]} << 16 | u32{destination[1]} << 8 | destination[2]) {
    case 0x0180C2:
        return FRAME_TO_BRIDGES;
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
    u8 any = 0;
    for (u32 i = 0; i < ETH_ALEN; i++)
        any |= source[i];
    return _if((source[0] & 1) || any == 0, FRAME_UNREAL_SOURCE);
}

} // namespace

void pkt_candidates_init() {
    rwlock_init(&_lock, "redirect_candidates_lock");
}

frame_class pkt_frame_class(u32 ethertype) {
    switch (ethertype) {
    case ETH_P_ARP:
        return FRAME_CLASS_ARP;
    case ETH_P_IP:
        return FRAME_CLASS_IPV4;
    case ETH_P_IPV6:
        return FRAME_CLASS_IPV6;
    default:
        return FRAME_CLASS_OTHER;
    }
}

u32 pkt_frame_facts(const tarn_pkt_info *info) {
    u8 addresses[2 * ETH_ALEN];
    frame_bytes(info->skb).copy(ETH_DST_OFFSET, addresses, sizeof(addresses));
    return FRAME_ANY | _type_facts(info->ethertype) | _destination_facts(addresses) |
           _source_facts(addresses + ETH_SRC_OFFSET) | _if(info->mac_multicast, FRAME_TO_GROUP) |
           _if(info->flags != 0, FRAME_TRAP_FLAGS) | _if(info->code != 0, FRAME_TRAP_CODE) |
           _if(info->local || !info->rx_port, FRAME_WITHOUT_PORT);
}

redirect_places pkt_candidates(frame_class of, u32 facts) {
    redirect_places concerned{};
    for (; facts != 0; facts &= facts - 1) {
        const redirect_places &more = _concerned[__builtin_ctz(facts)];
        concerned.words[0] |= read_once(more.words[0]);
        concerned.words[1] |= read_once(more.words[1]);
    }
    concerned.words[0] &= read_once(_asked[of].words[0]);
    concerned.words[1] &= read_once(_asked[of].words[1]);
    return concerned;
}

u32 pkt_candidates_next(redirect_places *left) {
    for (u32 word = 0; word < 2; word++) {
        u32 bits = left->words[word];
        if (bits == 0)
            continue;
        left->words[word] = bits & (bits - 1);
        return word * _WORD_BITS + static_cast<u32>(__builtin_ctz(bits));
    }
    return REDIRECT_PLACES;
}

void pkt_candidates_count(frame_class of, u32 place) {
    count_up(_ended[of][place]);
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
