// The registry of redirects: who is asked about a frame, in which order, and what they counted.
//
// A redirect is a packet_redirect in one of 51 slots. Its init function fills a record on the stack
// and registers it; the registry keeps a copy, for ever. The slot names the redirect; its place in
// an order table says when it is asked. The table is complete before the first frame arrives and
// has no lock; `enabled` is a plain word. What is counted on the way of a frame, each CPU counts
// for itself (redirect_counts); the record has the sums, as of the last pkt_candidates_sum_up.
//
// Reading the counters: print_redirect_counters prints a line "<name>_inspects: <n>" and its
// fellows for each redirect of an order table. docs/architecture.md tells what each counter means.
#pragma once

#include "kernel/seq.h"
#include "pkt/pkt_info.h"

#include <array>

inline constexpr u32 REDIRECT_SLOTS = 51;
inline constexpr u8 REDIRECT_ORDER_END = 51;
inline constexpr u32 REDIRECT_NAME_SIZE = 20;

// Frame classes for packet_redirect.skip_protocols; a frame of any other type is of no class and is
// shown to every redirect.
inline constexpr u32 SKIP_ARP = 2;
inline constexpr u32 SKIP_IPV4 = 4;
inline constexpr u32 SKIP_IPV6 = 8;

// The classes, each half of its bit; 3 is none.
enum frame_class : u32 {
    FRAME_CLASS_OTHER = 0,
    FRAME_CLASS_ARP = SKIP_ARP / 2,
    FRAME_CLASS_IPV4 = SKIP_IPV4 / 2,
    FRAME_CLASS_IPV6 = SKIP_IPV6 / 2,
    FRAME_CLASSES,
};

// Facts of a frame, for packet_redirect.concerns (pkt_candidates.cc finds them).
enum frame_fact : u32 {
    FRAME_ANY = 0x001, // of every frame
    FRAME_WITHOUT_PORT = 0x002,
    FRAME_ARP = 0x004,
    FRAME_IPV4 = 0x008,
    FRAME_IPV6 = 0x010,
    FRAME_OF_PROTOCOL = 0x020,   // its type is that of a protocol with a redirect
    FRAME_TO_PROTOCOL = 0x040,   // its destination has the three bytes of such a protocol
    FRAME_TO_BRIDGES = 0x080,    // its destination starts 01:80:C2, and is neither of these two:
    FRAME_TO_STP = 0x8000,       // 01:80:C2:00:00:00
    FRAME_TO_LACP = 0x10000,     // 01:80:C2:00:00:02
    FRAME_TO_GROUP = 0x100,      // but not to all
    FRAME_UNREAL_SOURCE = 0x200, // a group or zero
    FRAME_TRAP_FLAGS = 0x400,    // tarn_rx_meta.flags has any
    FRAME_TRAP_CODE = 0x800,     // tarn_rx_meta.code is not 0
    FRAME_FRAGMENT = 0x1000,     // of IPv4, the first one too
    FRAME_TCP = 0x2000,          // over IP
    FRAME_IP_ROUTING = 0x4000,   // PIM or VRRP, over IP
};

// Kinds of replicated frames, in the order of stack_repl_strings.
enum stack_repl_type : u32 {
    STACK_REPL_DEFAULT,
    STACK_REPL_STP,
    STACK_REPL_RYKE,
    STACK_REPL_MRP,
    STACK_REPL_CFM,
    STACK_REPL_LACP,
    STACK_REPL_ISIS,
    STACK_REPL_PROFINET,
    STACK_REPL_MCAST,
    STACK_REPL_SFLOW,
    STACK_REPL_BCEXC,
    STACK_REPL_PORTAUTH,
    STACK_REPL_TYPES,
};

// Frames are counted by class in even rows, and in odd ones those without a port: they meet no hook
// (pkt_frame_row).
inline constexpr u32 FRAME_ROWS = 2 * FRAME_CLASSES;

// How a walk ended at a redirect: it stopped the frame for one of the reasons, or for one that is
// too high; or what it asked for was refused.
inline constexpr u32 STOP_REASON_TOO_HIGH = REDIRECT_REASONS;
inline constexpr u32 STOP_REFUSED = REDIRECT_REASONS + 1;
inline constexpr u32 WALK_ENDS = REDIRECT_REASONS + 2;

// Of one redirect, on each CPU (kernel/percpu.h). Words that only grow.
struct redirect_counts {
    u32 ended[FRAME_ROWS][WALK_ENDS];
    u32 kernel, userspace, resend_l2, stack_rep, flood_l2, kernel_port;
};

struct packet_redirect {
    char name[REDIRECT_NAME_SIZE]; // padded with NUL
    // Required. ORs into the instruct's flags and writes its reason with them; the result is not
    // looked at. May change nothing of the frame.
    i32 (*match)(tarn_pkt_info *info, redirect_instruct *instruct);
    // Required. Takes a clone if it wants the frame; returns the frame to go on with. Null means a
    // failed reallocation: the frame it was given is still alive.
    sk_buff *(*post)(sk_buff *skb, tarn_post_info *info);
    // Optional. Before classification; may change the frame and the record.
    void (*modify_rx)(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp,
                      sk_buff *skb) = nullptr;
    // Optional. On frames of the IP stack; returns the frame to go on with, or null if it took it.
    sk_buff *(*modify_tx)(tarn_if *ifp, sk_buff *skb) = nullptr;
    u32 stack_repl_type = STACK_REPL_DEFAULT;
    u32 inspects = 0; // frames that came by
    u32 stops = 0;
    u32 stop_reasons[REDIRECT_REASONS] = {};
    u32 kernel = 0;
    u32 userspace = 0;
    u32 resend_l2 = 0;
    u32 stack_rep = 0;
    u32 flood_l2 = 0;
    u32 modify_rx_inspects = 0;
    u32 modify_tx_inspects = 0;
    u32 kernel_port = 0;
    u32 skip_protocols = 0; // SKIP_*
    u8 enabled = 0;
    // Optional. Called with the frame and the instruct's pre_post_arg when that is set; frees what
    // it points to and clears it. A null frame: the request was refused, only free it.
    void (*pre_post_modify)(sk_buff *skb, void **arg) = nullptr;
    // FRAME_*: a frame with none of these facts is none that `match` wants. It is not called then,
    // though it counts as if it were; 0 for one that only modifies.
    u32 concerns = FRAME_ANY;
    // The same for `modify_rx`, which comes before a frame is looked at: FRAME_ANY,
    // FRAME_TRAP_FLAGS or FRAME_TRAP_CODE.
    u32 modify_concerns = FRAME_ANY;
    redirect_counts *counts = nullptr;    // of each CPU
    redirect_counts *summed_up = nullptr; // what the sums above have in them of it
};

extern std::array<packet_redirect *, REDIRECT_SLOTS> packet_redirects;
extern const std::array<const char *, STACK_REPL_TYPES> stack_repl_strings;

// Slot numbers in the order they are asked; each ends with REDIRECT_ORDER_END.
extern const std::array<u8, 48> process_packet_rxs;
extern const std::array<u8, 12> process_packet_modify_rx;
extern const std::array<u8, 6> process_packet_modify_tx;
// Kept for callers that want a subset; nothing reads them.
extern const std::array<u8, 10> process_packet_rxs_ip;
extern const std::array<u8, 5> process_packet_rxs_eth;

// 0; -EINVAL with a message for a record that is incomplete or a slot that is out of bounds or
// taken; -ENOMEM.
i32 tarn_pkt_register_packet_redirection(const packet_redirect *record, u32 index);

// 0; -EINVAL for a slot out of bounds or empty.
i32 enable_redirect(u32 index, u8 value);
// Every redirect of that name: 0 if there was one, else -EINVAL.
i32 enable_redirect_by_name(const char *name, u8 value);

// The post hook of redirects that never post: gives the frame back.
sk_buff *tarn_pkt_packet_post_dummy(sk_buff *skb, tarn_post_info *info);

void tarn_pkt_redirect_clear_counters(u32 index);
// Adds to the sums what has been counted since, and tells how many frames of each row ended here.
// Within the lock of pkt_candidates.cc.
void pkt_redirect_sum_up(packet_redirect *redirect, u32 (*ended)[FRAME_ROWS]);

// Hides one redirect from print_redirect_counters; the name is cut at 19 characters.
void skip_protocol_set(const char *name);

enum redirect_counters_mode : u32 {
    REDIRECT_COUNTERS_MODIFY_RX = 0,
    REDIRECT_COUNTERS_RX = 1,
    REDIRECT_COUNTERS_MODIFY_TX = 2,
};

i32 print_redirect_counters(u32 mode, seq_file *view);
// The names of the redirects whose `enabled` is the argument, a line each.
i32 print_redirect_protocols(u8 enabled, seq_file *view);
