// Whatever arrives, every frame is accounted for, and nothing is read or written outside a buffer
// (the address sanitizer looks, in its build).
//
// TARN_RANDOM_FRAMES sets how many (200000 unless said otherwise), TARN_RANDOM_SEED the seed.
#include "pkt/random_frames.h"

namespace {

TEST_F(RandomFrames, are_all_accounted_for) {
    add_interfaces();
    decide_anything();

    Counted frames("frames", "TARN_RANDOM_FRAMES", 200000);
    while (frames.go_on()) {
        if (frames.done() % 128 == 0)
            change();
        offer();
        if (frames.done() % 64 == 0)
            expect_nothing_leaked();
        if (frames.done() % 1024 == 0) {
            forget_calls();
            expect_nothing_leaked();
            ASSERT_FALSE(HasFailure()) << "seed " << seed_ << ", frame " << frames.done();
        }
    }
    forget_calls();
    EXPECT_LT(frames.grown_kb(), MOST_KB);
    EXPECT_GT(events_, frames.wanted() / 8);
    for (const char *name : {"ipv4", "ipv6_precheck", "ipv6", "arp", "mcdrop", "sflow", "flowd",
                             "vornappsd", "l2drop"})
        EXPECT_GT(redirect(name).stops, 0u) << name << " was never met";
}

} // namespace
