#include "kernel/locks.h"

#include "control.h"

#include <algorithm>
#include <mutex>

namespace {

thread_local std::vector<const rwlock_t *> held; // latest last

std::mutex names_mutex;
std::vector<std::string> names;

} // namespace

void userlevel::lock_set_up(const char *name) {
    std::lock_guard guard(names_mutex);
    names.emplace_back(name);
}

std::vector<std::string> userlevel::locks_set_up() {
    std::lock_guard guard(names_mutex);
    return names;
}

void userlevel::lock_taken(const rwlock_t *lock) {
    held.push_back(lock);
}

void userlevel::lock_dropped(const rwlock_t *lock) {
    auto latest = std::find(held.rbegin(), held.rend(), lock);
    if (latest == held.rend())
        BUG(); // dropped by somebody who never took it
    held.erase(std::next(latest).base());
}

bool lockdep_is_held(const rwlock_t *lock) {
    return std::find(held.begin(), held.end(), lock) != held.end();
}
