// A switch with a driver, for tests of what leaves it: frames go through the core's own layers down
// to fake_driver.
#pragma once

#include "support/fake_driver.h"
#include "support/switch_test.h"
#include "support/tx_seams.h"

#include "pkt/pkt_flood.h"
#include "pkt/pkt_hw.h"
#include "pkt/pkt_tx.h"

class TransmitTest : public SwitchTest {
protected:
    TransmitTest() {
        calls().pass_on = true;
        fake_driver::attach();
        ends_ = userlevel::skbs_ended();
    }

    fake_driver::Record &driver() { return fake_driver::record(); }
    tx_seams::Answers &features() { return tx_seams::answers(); }

    static Bytes plain() { return Frame().padded(); }
    static sk_buff *frame(const Bytes &bytes = plain(), u32 headroom = 64) {
        return userlevel::frame_make(bytes, headroom);
    }
    static Bytes bytes_of(const sk_buff *skb) {
        return Bytes(skb_data(skb), skb_data(skb) + skb_len(skb));
    }

    // A port of the kernel's own, with a device when one is given.
    tarn_if *add_ethernet(const char *name, u32 ifindex);

    // Frames dropped (delivered) since the last question.
    u64 dropped() {
        u64 now = userlevel::skbs_ended().dropped;
        return now - std::exchange(ends_.dropped, now);
    }

    // Failures told to the VLAN's callback.
    struct Failure {
        tarn_if *ifp;
        u32 kind;
        i32 error;
        bool operator==(const Failure &) const = default;
    };
    static inline std::vector<Failure> failures;
    static void failed(tarn_if *ifp, u32 kind, i32 error) {
        failures.push_back({ifp, kind, error});
    }

private:
    userlevel::skb_ends ends_{};
};
