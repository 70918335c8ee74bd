// Port authentication: of a port its state, its supplicants and what passes without them; and the
// web listener of the switch.
#include "control/proc_entries.h"
#include "control/proc_text.h"
#include "kernel/once.h"
#include "kernel/parse.h"
#include "security/auth_state.h"

namespace {

constexpr const char *STATE_NAMES[] = {"Block-InOut", "Block-In", "Unblock", "Uncontrolled",
                                       "Auto"};
// More are left out, on purpose: a view stays a few lines.
constexpr i32 MOST_RULES = 9;
constexpr u32 MOST_SUPPLICANTS = 9;

constexpr u8 TCP = 6;
constexpr u8 UDP = 17;

tarn_if *_port(void *data) {
    return static_cast<tarn_if *>(data);
}

const char *_state_name(u32 state) {
    return state < sizeof(STATE_NAMES) / sizeof(STATE_NAMES[0]) ? STATE_NAMES[state] : "Unknown";
}

// --- the web listener --------------------------------------------------------------------------

void _print_ports(seq_file *view, const u16 *ports, u32 count) {
    for (u32 i = 0; ports && i < count; i++)
        seq_printf(view, "%u,", ports[i]);
}

void _print_web(seq_file *view, const tarn_auth_web &web) {
    u32 ip = web.listen_ip;
    seq_printf(view, "listening-socket=%u.%u.%u.%u:%u/%u%s\n", ip >> 24, ip >> 16 & 0xFF,
               ip >> 8 & 0xFF, ip & 0xFF, web.listen_port, web.listen_port2,
               web.with_dhcpd ? " with dhcpd" : "");
    seq_printf(view, "hook-http-ports=");
    _print_ports(view, web.http_ports, web.http_port_count);
    seq_printf(view, "\nhook-https-ports=");
    _print_ports(view, web.https_ports, web.https_port_count);
    seq_printf(view, "\n");
}

// --- rules -------------------------------------------------------------------------------------

void _print_rule(seq_file *view, const tarn_auth_fwd_rule &rule) {
    if (rule.family == TARN_AUTH_FAMILY_IPV4)
        seq_printf(view, "%u.%u.%u.%u/%d", rule.addr[0], rule.addr[1], rule.addr[2], rule.addr[3],
                   rule.prefix_len);
    if (rule.protocol == TCP)
        seq_printf(view, ":%u/tcp\n", rule.port);
    else if (rule.protocol == UDP)
        seq_printf(view, ":%u/udp\n", rule.port);
    else
        seq_printf(view, "\n");
}

// --- supplicants -------------------------------------------------------------------------------

void _print_vlans(seq_file *view, const tarn_auth_supp *supp) {
    const char *separator = "";
    for (const tarn_auth_link *at = supp->vlans.next; at != &supp->vlans; at = at->next) {
        auto *vlan = reinterpret_cast<const tarn_auth_supp_vlan *>(at);
        seq_printf(view, "%s%d", separator, vlan->vid);
        separator = ",";
    }
}

void _print_supplicant(seq_file *view, const tarn_auth_supp *supp) {
    const u8 *mac = supp->mac;
    const tarn_if *l3 = read_once(supp->initial_l3); // may be none
    seq_printf(view, "%02x:%02x:%02x:%02x:%02x:%02x %s initial_l3=%.16s vlan=", mac[0], mac[1],
               mac[2], mac[3], mac[4], mac[5], read_once(supp->authed) ? "authed" : "unauthed",
               l3 ? l3->name : "");
    _print_vlans(view, supp);
    seq_printf(view, "\n");
}

void _print_table(seq_file *view, const tarn_auth_supp_table *table) {
    u32 printed = 0;
    for (const tarn_auth_link &bucket : table->buckets)
        for (const tarn_auth_link *at = bucket.next; at != &bucket; at = at->next) {
            _print_supplicant(view, reinterpret_cast<const tarn_auth_supp *>(at));
            if (++printed == MOST_SUPPLICANTS)
                return;
        }
}

const char *_skip_blanks(const char *text) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r'))
        text++;
    return text;
}

// Six hexadecimal numbers, of each the low byte, with colons between; what is not there is 0.
void _parse_mac(const char *text, u8 *mac) {
    for (u32 i = 0; i < 6; i++)
        mac[i] = 0;
    for (u32 i = 0; i < 6; i++) {
        text = _skip_blanks(text);
        char *end;
        unsigned long value = simple_strtoul(text, &end, 16);
        if (end == text)
            return;
        mac[i] = static_cast<u8>(value);
        if (*end != ':')
            return;
        text = end + 1;
    }
}

} // namespace

int authglobal_show(seq_file *view, void *) {
    bool is_locked = tarn_auth_state_started();
    if (is_locked)
        read_lock_bh(&_auth_pkt_config_lock);
    _print_web(view, am);
    if (is_locked)
        read_unlock_bh(&_auth_pkt_config_lock);
    return 0;
}

// Address and ports up to the first comma, then three numbers: all of it is read and dropped, on
// purpose. A write tests its own syntax and nothing else.
long authglobal_store(const proc_text &written, void *) {
    char *fields[4];
    return proc_split(written.text, fields, 4) ? static_cast<long>(written.length) : -EFAULT;
}

int if_auth_show(seq_file *view, void *data) {
    const tarn_if *port = _port(data);
    u32 method = read_once(port->auth_method);
    seq_printf(view, "state=%s\n", _state_name(read_once(port->auth_state)));
    seq_printf(view, "method=%s%s%s%s\n", method & TARN_AUTH_METHOD_MAC ? "MAC " : "",
               method & TARN_AUTH_METHOD_DOT1X ? "Dot1x " : "",
               method & TARN_AUTH_METHOD_WEB ? "Web " : "", method == 0 ? "None" : "");
    seq_printf(view, "guest-vlan=%u\n", read_once(port->auth_guest_vlan));
    return 0;
}

long if_auth_store(const proc_text &written, void *data) {
    tarn_if *port = _port(data);
    char *fields[3]; // state, method, guest VLAN
    if (!proc_split(written.text, fields, 3))
        return -EFAULT;
    if (tarn_auth_set_port_state(port, static_cast<u32>(tarn_atoi(fields[0])),
                                 static_cast<u32>(tarn_atoi(fields[1]))) < 0)
        return -EFAULT;
    write_once(port->auth_guest_vlan, tarn_atoi(fields[2]));
    return written.length;
}

int if_auth_fwd_show(seq_file *view, void *data) {
    const tarn_if *port = _port(data);
    read_lock_bh(&_auth_fwd_lock);
    if (port->auth_arp_forward)
        seq_printf(view, "0.0.0.0:arp\n");
    // The count stays when there was no memory for the rules.
    const tarn_auth_fwd_rule *rules = port->auth_fwd_rules;
    for (i32 i = 0; rules && i < port->auth_fwd_count && i < MOST_RULES; i++)
        _print_rule(view, rules[i]);
    read_unlock_bh(&_auth_fwd_lock);
    return 0;
}

int if_auth_supp_show(seq_file *view, void *data) {
    const tarn_if *port = _port(data);
    read_lock_bh(&_auth_supp_list_lock);
    if (const tarn_auth_supp_table *table = port->auth_supp_table)
        _print_table(view, table);
    read_unlock_bh(&_auth_supp_list_lock);
    return 0;
}

long if_auth_supp_store(const proc_text &written, void *data) {
    constexpr i32 ADD = 1;
    tarn_if *port = _port(data);
    char *fields[4]; // add, MAC, state, VID
    if (!proc_split(written.text, fields, 4))
        return -EFAULT;
    u8 mac[6];
    _parse_mac(fields[1], mac);
    if (tarn_atoi(fields[0]) != ADD) {
        tarn_auth_remove_supp(port, mac);
        return written.length;
    }
    u16 vid = static_cast<u16>(tarn_atoi(fields[3]));
    i32 result = tarn_auth_supp_set_state(port, mac, vid, tarn_atoi(fields[2]) != 0);
    return result == 0 ? static_cast<long>(written.length) : -EFAULT;
}
