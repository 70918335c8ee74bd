// The directory of a port, "tarn/<name>".
//
// A name comes from outside. One that no directory can have, or that is taken, gets none, and the
// record remembers what has been made for it, so that nothing of another's is removed.
#include "control/proc_entries.h"
#include "control/tarn_proc.h"
#include "ifmgr/tarn_if.h"
#include "ifmgr/tarn_ifmgr_calls.h"
#include "kernel/bytes.h"
#include "kernel/log.h"
#include "kernel/work.h"

namespace {

// In the order in which they are made.
constexpr proc_row ROWS[] = {
    {"auth", if_auth_show, if_auth_store, 16},
    {"authfwd", if_auth_fwd_show},
    {"authsupp", if_auth_supp_show, if_auth_supp_store, 253},
    {"disablevlans", if_disable_vlans_show, if_disable_vlans_store, 10},
    {"openflow", if_openflow_show, if_openflow_store, 2},
    {"bridge", if_bridge_show},
};
constexpr u32 COUNT = sizeof(ROWS) / sizeof(ROWS[0]);

constexpr proc_row MEMBERS = {"members", members_show};
constexpr u32 MEMBERS_MODE = 0666; // though nobody can write it, on purpose
constexpr u32 MEMBERS_FILE = COUNT;
static_assert(COUNT + 1 == TARN_IF_PROC_FILES);

// Covers the fields of every record that are declared as this file's.
constinit mutex _lock{};
constinit tarn_if *_with_directory = nullptr;

struct _directory_name {
    char text[TARN_IF_NAME_SIZE + 1];

    explicit _directory_name(const tarn_if *ifp) {
        memcpy(text, ifp->name, TARN_IF_NAME_SIZE);
        text[TARN_IF_NAME_SIZE] = '\0';
    }
};

bool _is_possible(const char *name) {
    if (name[0] == '\0' || (name[0] == '.' && name[1] == '\0') ||
        (name[0] == '.' && name[1] == '.' && name[2] == '\0'))
        return false;
    for (; *name; name++)
        if (*name == '/')
            return false;
    return true;
}

bool _is_taken(const char *name) {
    for (const tarn_if *ifp = _with_directory; ifp; ifp = ifp->proc_next)
        if (strncmp(ifp->name, name, TARN_IF_NAME_SIZE) == 0)
            return true;
    return tarn_proc_is_global(name);
}

proc_dir_entry *_create(tarn_if *ifp, u32 at, const proc_row &row, u32 mode) {
    ifp->proc_files[at] = {.row = &row, .data = ifp};
    proc_dir_entry *made =
        proc_create_file(row.name, mode, ifp->proc_directory, &ifp->proc_files[at]);
    if (!made)
        pr_crit("Failed to create proc entry /proc/tarn/%.16s/%s\n", ifp->name, row.name);
    return made;
}

// What has been made stays when one fails.
i32 _create_entries(tarn_if *ifp) {
    for (u32 i = 0; i < COUNT; i++)
        if (!_create(ifp, i, ROWS[i], proc_row_mode(ROWS[i])))
            return -1;
    return 0;
}

i32 _create_directory(tarn_if *ifp) {
    _directory_name name(ifp);
    if (ifp->proc_directory || !tarn_proc_directory || !_is_possible(name.text) ||
        _is_taken(name.text))
        return -1;
    ifp->proc_directory = proc_mkdir(name.text, tarn_proc_directory);
    if (!ifp->proc_directory)
        return -1;
    ifp->proc_next = _with_directory;
    _with_directory = ifp;
    return _create_entries(ifp);
}

void _forget(tarn_if *ifp) {
    tarn_if **at = &_with_directory;
    while (*at != ifp)
        at = &(*at)->proc_next;
    *at = ifp->proc_next;
    ifp->proc_next = nullptr;
    ifp->proc_directory = nullptr;
    ifp->proc_members = nullptr;
}

void _remove_directory(tarn_if *ifp) {
    if (!ifp->proc_directory)
        return;
    proc_remove(ifp->proc_directory);
    _forget(ifp);
}

// One that is there already has outlived a binding that failed. Without a directory there is no
// place for one.
i32 _create_members(tarn_if *ifp) {
    if (ifp->proc_members)
        return 0;
    if (!ifp->proc_directory)
        return -1;
    ifp->proc_members = _create(ifp, MEMBERS_FILE, MEMBERS, MEMBERS_MODE);
    return ifp->proc_members ? 0 : -1;
}

} // namespace

void tarn_proc_if_init() {
    mutex_init(&_lock, "tarn_proc_if");
}

i32 _module_create_proc_if(tarn_if *ifp) {
    mutex_lock(&_lock);
    i32 result = _create_directory(ifp);
    mutex_unlock(&_lock);
    return result;
}

void module_remove_proc_if(tarn_if *ifp) {
    mutex_lock(&_lock);
    _remove_directory(ifp);
    mutex_unlock(&_lock);
}

i32 _module_bind_add_proc_if(tarn_if *ifp) {
    mutex_lock(&_lock);
    i32 result = _create_members(ifp);
    mutex_unlock(&_lock);
    return result;
}

i32 _module_unbind_del_proc_if(tarn_if *ifp) {
    mutex_lock(&_lock);
    proc_remove(ifp->proc_members);
    ifp->proc_members = nullptr;
    mutex_unlock(&_lock);
    return 0;
}
