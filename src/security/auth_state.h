// What port authentication keeps: the supplicants of each port, what may pass without them, and the
// web listener.
//
// A port's record has the table (auth_supp_table), the rules (auth_fwd_rules) and their count; the
// lock of each is here.
#pragma once

#include "ifmgr/tarn_if.h"
#include "kernel/locks.h"

enum tarn_auth_port_state : u32 {
    TARN_AUTH_BLOCK_IN_OUT = 0,
    TARN_AUTH_BLOCK_IN = 1,
    TARN_AUTH_UNBLOCK = 2,
    // 3 is TARN_AUTH_UNCONTROLLED
    TARN_AUTH_AUTO = 4,
};

// Bits of tarn_if.auth_method.
inline constexpr u32 TARN_AUTH_METHOD_MAC = 0x1;
inline constexpr u32 TARN_AUTH_METHOD_DOT1X = 0x2;
inline constexpr u32 TARN_AUTH_METHOD_WEB = 0x4;

// A circular list; its head links to itself when it is empty.
struct tarn_auth_link {
    tarn_auth_link *next, *prev;
};

struct tarn_auth_supp_vlan {
    tarn_auth_link link; // first
    u16 vid;
};

struct tarn_auth_supp {
    tarn_auth_link list; // first; in its bucket
    u8 mac[6];
    tarn_if *initial_l3; // with a reference; or null
    tarn_auth_link vlans;
    u8 authed;
    u8 ageout_incomplete;
    i8 ageout_count;
};

// The bucket of a host is the last byte of its MAC.
inline constexpr u32 TARN_AUTH_BUCKETS = 256;
struct tarn_auth_supp_table {
    tarn_auth_link buckets[TARN_AUTH_BUCKETS];
};

inline constexpr u32 TARN_AUTH_FAMILY_IPV4 = 2;

// One destination that may be reached without authentication, laid out as the control daemon sends
// it.
struct tarn_auth_fwd_rule {
    u32 family;
    u8 prefix_len;
    u8 unused[3];
    u8 mask[4];
    u8 addr[16];
    u16 port;    // 0: any
    u8 protocol; // 0: any
    u8 unused2;
};
static_assert(sizeof(tarn_auth_fwd_rule) == 32);

struct tarn_auth_web {
    u32 listen_ip = 0; // host order
    u16 listen_port = 80;
    u16 listen_port2 = 0; // 0: none
    u8 with_dhcpd = 0;    // the authenticator serves DHCP and DNS itself
    u16 http_port_count = 0;
    u16 *http_ports = nullptr;
    u16 https_port_count = 0;
    u16 *https_ports = nullptr;
};

extern tarn_auth_web am;              // under _auth_pkt_config_lock
extern rwlock_t _auth_supp_list_lock; // tables and what is in them
extern rwlock_t _auth_fwd_lock;       // rules and their counts
extern rwlock_t _auth_pkt_config_lock;

// Once, at the start. Until then nobody changes what is here, and there is no lock to take.
void tarn_auth_state_init();
bool tarn_auth_state_started();

// 0, -ENOMEM, or what the chip's driver says to a port that begins to be controlled.
i32 tarn_auth_set_port_state(tarn_if *ifp, u32 state, u32 method);
// 0; -EINVAL: also where the port has no table.
i32 tarn_auth_supp_set_state(tarn_if *ifp, const u8 *mac, u16 vid, u8 authed);
void tarn_auth_remove_supp(tarn_if *ifp, const u8 *mac);
