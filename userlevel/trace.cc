#include "kernel/trace.h"

#include "control.h"

#include <atomic>
#include <list>
#include <mutex>

namespace userlevel {

constinit bool trace_on = false;

namespace {

// Frames come on several threads, watchers come and go.
std::mutex watchers_mutex;
std::list<trace_watcher> watchers;

} // namespace

trace_watch::trace_watch(trace_watcher watcher) {
    std::lock_guard guard(watchers_mutex);
    at_ = watchers.insert(watchers.end(), std::move(watcher));
    __atomic_store_n(&trace_on, true, __ATOMIC_RELAXED);
}

trace_watch::~trace_watch() {
    std::lock_guard guard(watchers_mutex);
    watchers.erase(at_);
    __atomic_store_n(&trace_on, !watchers.empty(), __ATOMIC_RELAXED);
}

} // namespace userlevel

void trace_redirect(const redirect_event *event) {
    std::lock_guard guard(userlevel::watchers_mutex);
    for (const auto &watcher : userlevel::watchers)
        watcher(*event);
}
