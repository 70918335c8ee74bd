// The user-level home, as a test, a tool or a fuzzer sees and steers it.
//
// Everything here belongs to this process: the log that the core writes, the clock it reads, the
// memory it asks for. All of it may be used from several threads.
#pragma once

#include "kernel/seq.h"
#include "kernel/time.h"
#include "kernel/trace.h"
#include "kernel/types.h"

#include <array>
#include <functional>
#include <list>
#include <map>
#include <span>
#include <string>
#include <vector>

struct net_device;
struct sk_buff;

namespace userlevel {

// --- log ---------------------------------------------------------------------------------------

struct log_line {
    int level;        // 2 critical, 3 error, 4 warning, 5 notice, 6 information, 7 debug
    std::string text; // with its newline; a continuation is appended to the line before it
};

// The lines since the last call. At most LOG_LINES are kept; of more, the first ones. Nor does a
// line grow by continuations when it is LOG_LINE_BYTES long.
inline constexpr std::size_t LOG_LINES = 10000;
inline constexpr std::size_t LOG_LINE_BYTES = 1 << 20;
std::vector<log_line> log_take();
void log_keep(bool on); // off: lines are only counted, for long runs
u64 log_count();        // lines since the start of the process
void log_echo(bool on); // also to standard error, "<level> text"

// --- clock -------------------------------------------------------------------------------------

// Real at first: 100 jiffies a second, from five minutes before the wrap of 32 bits, as in a
// kernel.
inline constexpr unsigned long CLOCK_START = 0xFFFFFFFFul - 5 * 60 * JIFFIES_PER_SECOND + 1;
void clock_stop(unsigned long jiffies);
void clock_advance(unsigned long jiffies); // of a stopped clock
void clock_run();

// --- memory ------------------------------------------------------------------------------------

// The n-th allocation from now fails, once (1: the next); 0 takes it back.
void fail_allocation(u64 n);
// Each allocation fails with this chance in 65536, drawn from the seed; 0 takes it back.
void fail_allocations_at_random(u32 chance, u64 seed);
// Since the start of the process, failed ones included.
u64 allocations_made();
// GFP_KERNEL allocations made while the preempt count was not 0: in a kernel, a bug. Each also
// leaves a critical line in the log, so that a test which looks at its log cannot miss it.
u64 sleeping_allocations_in_atomic();

// So many threads at once have words of their own where a kernel's CPUs have (kernel/percpu.h).
// More share those of one.
inline constexpr std::size_t PERCPU_PLACES = 64;

struct object {
    const char *kind; // "kmalloc", "sk_buff", "skb data", "percpu", or the name of a cache
    std::size_t bytes;
    u64 serial; // counts allocations; what belongs to frames has the number of what was made before
                // it
    gfp_t flags;
    u32 preempt; // count at the allocation
    const void *address;
    const void *site; // return address of the caller
};

// What is alive, oldest first; what belongs to frames somewhere behind what was made before it.
std::vector<object> live();
// One line for each, its site as addr2line wants it (file and offset) and by name where the linker
// knows it; "" for none.
std::string describe(const std::vector<object> &objects);

struct snapshot {
    u64 serial = 0;
};
snapshot take_snapshot();
// Objects alive that were not there at the snapshot.
std::vector<object> leaked_since(const snapshot &before);

// --- pages, randomness -------------------------------------------------------------------------

// A global page counter, see kernel/vmstat.h. At first a gigabyte is free.
void zone_pages_set(unsigned item, long pages);

// The system's randomness at first.
void random_seed(u64 seed);                      // from now on the same bytes for the same seed
void random_script(const std::vector<u8> &next); // these bytes first

// --- frames ------------------------------------------------------------------------------------

// A buffer that holds these bytes; null when an allocation fails. The tail room is at least what is
// asked for: blocks come in the sizes that a kernel has.
sk_buff *frame_make(std::span<const u8> bytes, u32 headroom = 64, u32 tailroom = 0);

// Blocks of frame bytes since the start of the process. On a frame's way, each is a copy of it.
u64 frame_blocks_made();

struct skb_ends {
    u64 dropped;  // kfree_skb
    u64 consumed; // consume_skb
    u64 irq;      // __dev_kfree_skb_irq
};
skb_ends skbs_ended(); // since the start of the process

// --- the chain of redirects, watched -----------------------------------------------------------

// Told of each event while the object lives, on the thread of the frame: one at a time. It may not
// come or go from within, and should be quick.
using trace_watcher = std::function<void(const redirect_event &event)>;
class trace_watch {
public:
    explicit trace_watch(trace_watcher watcher);
    ~trace_watch();
    trace_watch(const trace_watch &) = delete;
    trace_watch &operator=(const trace_watch &) = delete;

private:
    std::list<trace_watcher>::iterator at_;
};

// --- locks -------------------------------------------------------------------------------------

// The names of all that rwlock_init and mutex_init have set up, in their order.
std::vector<std::string> locks_set_up();

// --- work --------------------------------------------------------------------------------------

// Runs what is queued, and what that queues, on this thread; how many items that were. Where a
// thread of its own does that, waits until there is nothing left to do.
u32 work_run();
// From now on a thread of its own runs work as it is queued, as in a kernel.
void work_thread_start();

// Returns when all who had bottom halves off have turned them on again.
void wait_for_bottom_halves();

// --- network devices ---------------------------------------------------------------------------

struct device_frame {
    std::vector<u8> bytes;
    u32 mark;
    u16 protocol; // network order; of received frames
};
struct ipv4_address {
    u32 address, mask; // network order
};
struct ipv6_prefix {
    std::array<u8, 16> address;
    u32 length; // bits
};

// What a device without a back has been given, and what a test says of it.
struct netdev_record {
    std::vector<device_frame> received; // by the IP stack
    std::vector<device_frame> sent;     // by dev_queue_xmit
    int queue_result = 0;               // of dev_queue_xmit
    std::vector<ipv4_address> ipv4;
    bool ipv6 = false;
    std::vector<ipv6_prefix> prefixes;
};
// Starts recording. The record ends with the device's registration.
netdev_record &netdev_recorded(const net_device *device);

std::vector<net_device *> netdevs(); // the registered ones
// A device that this module did not make, up to now unused and with carrier.
net_device *netdev_create(const char *name);
// The IP stack sends a frame on the device, with bottom halves off.
void netdev_transmit(net_device *device, std::span<const u8> bytes, u32 priority = 0);
// A frame comes in on a device that the module did not make: who asked for its type gets it.
void netdev_receive(net_device *device, std::span<const u8> bytes);
void netdev_send_event(net_device *device, unsigned long event);

struct neigh_flush {
    const char *table; // "arp" or "ndisc"; "moved": both
    i32 vid;
    net_device *device;
    u32 ifindex;
    std::vector<u8> mac; // empty: any
};
// The flushes since the last call.
std::vector<neigh_flush> neigh_flushes_take();

// --- text views --------------------------------------------------------------------------------

class view {
public:
    view();
    ~view();
    view(const view &) = delete;
    view &operator=(const view &) = delete;
    seq_file *file() { return file_; }
    std::string text() const;

private:
    seq_file *file_;
};

// --- files under /proc -------------------------------------------------------------------------

// The process has a tree of its own. A path is relative to /proc, as "tarn/ifdb". Modes are shown
// and not asked: the process is root here.

struct proc_result {
    long result; // 0 or a negative errno
    std::string text;
};
proc_result proc_read(const std::string &path);
// The store's result, or a negative errno. From a null address no byte can be copied.
long proc_write(const std::string &path, const std::string &text);
long proc_write(const std::string &path, const void *from, unsigned long count);

struct proc_name {
    std::string name;
    u32 mode; // with the file type, as stat gives it
};
std::vector<proc_name> proc_list(const std::string &path); // by name

} // namespace userlevel
