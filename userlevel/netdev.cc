#include "kernel/netdev.h"

#include "kernel/errno.h"

#include <mutex>

namespace {

std::mutex chain_mutex;
notifier_block *chain = nullptr;

} // namespace

// Nothing here has device events yet; the chain is kept for the day something does. The highest
// priority comes first, of equals who came first.
int register_netdevice_notifier(notifier_block *block) {
    std::lock_guard guard(chain_mutex);
    notifier_block **place = &chain;
    for (; *place && (*place)->priority >= block->priority; place = &(*place)->next) {
        if (*place == block)
            return -EEXIST;
    }
    block->next = *place;
    *place = block;
    return 0;
}
