#include "ifmgr/tarn_ifmgr_event.h"

namespace {

// Link state follows device events once interfaces have devices; until then none concerns us.
int _tarn_ifmgr_device_event(notifier_block *, unsigned long, void *) {
    return NOTIFY_DONE;
}

} // namespace

constinit notifier_block tarn_ifmgr_device_notifier{
    .notifier_call = _tarn_ifmgr_device_event, .next = nullptr, .priority = 0};
