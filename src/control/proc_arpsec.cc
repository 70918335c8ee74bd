// ARP security: the leases that it checks against, and what it has counted.
#include "control/proc_entries.h"
#include "control/proc_text.h"
#include "kernel/bytes.h"
#include "kernel/once.h"
#include "security/arp_sec_stats.h"
#include "security/dhcpsn_db.h"

namespace {

constexpr long REFUSED = -1;
constexpr u32 TOKEN_SIZE = 8; // a number and its terminator
constexpr u32 DOTTED_SIZE = 16;

// Level 0 holds every entry; the head, without a key, ends it.
template <typename Visit>
void _each_key(const tarn_skip_list *list, Visit visit) {
    for (const tarn_skip_node *node = list->head->forward[0]; node->key; node = node->forward[0])
        visit(node->key);
}

void _print_lease(seq_file *view, const dhcpsn_lease *lease) {
    u8 ip[4];
    memcpy(ip, &lease->ip, sizeof(ip));
    char dotted[DOTTED_SIZE];
    snprintf(dotted, sizeof(dotted), "%u.%u.%u.%u", ip[0], ip[1], ip[2], ip[3]);
    const u8 *mac = lease->mac;
    seq_printf(view, "%-15s %02x%02x.%02x%02x.%02x%02x %-4d %d\n", dotted, mac[0], mac[1], mac[2],
               mac[3], mac[4], mac[5], lease->vid, static_cast<i32>(lease->ifindex));
}

i32 _count(const u32 &counter) {
    return static_cast<i32>(read_once(counter));
}

void _print_stats(seq_file *view, const dhcpsn_port_stats *stats) {
    seq_printf(view, "%d %d %d %d %d %d %d %d\n", _count(stats->ifindex), _count(stats->rx),
               _count(stats->discarded), _count(stats->no_binding), _count(stats->vlan_mismatch),
               _count(stats->port_mismatch), _count(stats->mac_mismatch),
               _count(stats->link_local));
}

// When the last event was sent is no counter.
void _clear_stats(dhcpsn_port_stats *stats) {
    u32 *const counters[] = {&stats->rx,
                             &stats->discarded,
                             &stats->no_binding,
                             &stats->vlan_mismatch,
                             &stats->port_mismatch,
                             &stats->mac_mismatch,
                             &stats->link_local};
    for (u32 *counter : counters)
        write_once(*counter, 0);
}

void _clear_one(i32 ifindex) {
    dhcpsn_port_stats *stats = nullptr;
    if (dhcpsn_stats_find_by_ifindex(&stats, static_cast<u32>(ifindex)) == 0)
        _clear_stats(stats);
}

bool _clear_all() {
    tarn_skip_list *list = nullptr;
    dhcpsn_stats_get_list(&list);
    if (!list)
        return false;
    _each_key(list, [](void *key) { _clear_stats(static_cast<dhcpsn_port_stats *>(key)); });
    return true;
}

u32 _comma_from(const proc_text &written, u32 at) {
    while (at < written.length && written.text[at] && written.text[at] != ',')
        at++;
    return at;
}

bool _has_comma(const proc_text &written, u32 at) {
    return at < written.length && written.text[at] == ',';
}

// One number, and 0 or more than seven characters end the write.
bool _clear_token(const char *text, u32 length) {
    char token[TOKEN_SIZE] = {};
    if (length >= TOKEN_SIZE)
        return false;
    memcpy(token, text, length);
    i32 ifindex = tarn_atoi(token);
    if (ifindex == 0)
        return false;
    _clear_one(ifindex);
    return true;
}

// Every number before a comma, up to the first after which less than its own length is left. The
// short result is on purpose: it is the length of the last number.
long _clear_list(const proc_text &written) {
    u32 from = 0, comma = _comma_from(written, 0);
    for (;;) {
        u32 length = comma - from;
        if (!_clear_token(written.text + from, length))
            return REFUSED;
        u32 ahead = comma + length;
        from = comma + 1;
        comma = _comma_from(written, from);
        if (ahead >= written.length || !written.text[ahead] || !_has_comma(written, comma))
            return length;
    }
}

long _clear(const proc_text &written) {
    if (_has_comma(written, _comma_from(written, 0)))
        return _clear_list(written);
    i32 ifindex = tarn_atoi(written.text);
    if (ifindex != 0)
        _clear_one(ifindex);
    else if (!_clear_all())
        return 0;
    return written.length;
}

} // namespace

int arpsecdb_show(seq_file *view, void *) {
    seq_printf(view, "DHCP Snooping ARP Security Database\n");
    seq_printf(view, "---------\n");
    seq_printf(view, "Client IP       MAC Address    VLAN Port(ifindex)\n");
    rtnl_lock();
    tarn_skip_list *list = nullptr;
    dhcpsn_db_get_list(&list);
    if (list)
        _each_key(list,
                  [view](void *key) { _print_lease(view, static_cast<dhcpsn_lease *>(key)); });
    rtnl_unlock();
    return 0;
}

int arpseccnt_show(seq_file *view, void *) {
    seq_printf(view, "DHCP Snooping ARP Security statistics\n");
    seq_printf(view, "---------\n");
    rtnl_lock();
    tarn_skip_list *list = nullptr;
    dhcpsn_stats_get_list(&list);
    if (list)
        _each_key(list,
                  [view](void *key) { _print_stats(view, static_cast<dhcpsn_port_stats *>(key)); });
    rtnl_unlock();
    return 0;
}

long arpseccnt_store(const proc_text &written, void *) {
    rtnl_lock();
    long result = _clear(written);
    rtnl_unlock();
    return result;
}
