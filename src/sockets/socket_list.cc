#include "sockets/socket_list.h"

#include "kernel/proc.h"

namespace {

struct _family {
    i32 number;
    const char *name;
    const sk_list *list;
    rwlock_t *lock;
};

constexpr u32 FAMILIES_MAX = 32;

// Written while the module loads.
constinit _family _families[FAMILIES_MAX]{};
constinit u32 _count = 0;

void _show_family(seq_file *view, const _family *family) {
    read_lock_bh(family->lock);
    for (const sock *sk = sk_list_first(family->list); sk; sk = sk_list_next(sk))
        seq_printf(view, "%-7d %-10s %7d %7lu %7u %8d %8d %8d\n", family->number, family->name,
                   sk_process(sk), sk_inode(sk), sk_queue_length(sk), sk_rmem_alloc(sk),
                   sk_rcvbuf(sk), sk_drops(sk));
    read_unlock_bh(family->lock);
}

int _show(seq_file *view, void *) {
    seq_printf(view, "%-7s %-10s %7s %7s %7s %8s %8s %8s\n", "Family", "Name", "Process", "Inode",
               "Frames", "Bytes", "Limit", "Lost");
    for (u32 i = 0; i < _count; i++)
        _show_family(view, &_families[i]);
    return 0;
}

constexpr proc_row _row{.name = "tarn_sockets", .show = _show};
constinit proc_file _file{&_row, nullptr};

void _make_file() {
    proc_dir_entry *directory = proc_net();
    if (directory)
        proc_create_file(_row.name, 0444, directory, &_file);
}

} // namespace

void socket_list_family(i32 number, const char *name, const sk_list *list, rwlock_t *lock) {
    if (_count == FAMILIES_MAX)
        return;
    if (_count == 0)
        _make_file();
    _families[_count++] = {number, name, list, lock};
}
