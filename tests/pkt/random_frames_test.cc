// Whatever arrives, every frame is accounted for, and nothing is read or written outside a buffer
// (the address sanitizer looks, in its build).
//
// TARN_RANDOM_FRAMES sets how many (200000 unless said otherwise), TARN_RANDOM_SEED the seed.
#include "pkt/random_frames.h"

namespace {

TEST_F(RandomFrames, are_all_accounted_for) {
    add_interfaces();
    decide_anything();

    const u64 frames = from_environment("TARN_RANDOM_FRAMES", 200000);
    for (u64 i = 0; i < frames; i++) {
        if (i % 64 == 0) {
            expect_nothing_leaked();
            change();
        }
        offer();
        if (i % 1024 == 0) {
            forget_calls();
            expect_nothing_leaked();
            ASSERT_FALSE(HasFailure()) << "seed " << seed_ << ", frame " << i;
        }
    }
    forget_calls();
    EXPECT_GT(events_, frames / 8);
    for (const char *name : {"ipv4", "ipv6_precheck", "ipv6", "arp", "mcdrop", "sflow", "flowd",
                             "vornappsd", "l2drop"})
        EXPECT_GT(redirect(name).stops, 0u) << name << " was never met";
    std::printf("%llu frames, seed %llu\n", static_cast<unsigned long long>(frames),
                static_cast<unsigned long long>(seed_));
}

} // namespace
