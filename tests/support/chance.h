// Random tests: what is drawn, and how often.
//
//   class Storm : public SwitchTest, protected Chance {};
//   TEST_F(Storm, leaves_nothing_behind) {
//       for (Counted frames("frames", "TARN_RANDOM_FRAMES", 200000); frames.go_on();)
//           receive(noise(below(100)));
//   }
//
// TARN_RANDOM_SEED sets the seed. A long run tells every ten seconds how far it is.
#pragma once

#include "support/frame_builder.h"

#include <chrono>
#include <initializer_list>

u64 from_environment(const char *name, u64 otherwise);

// The same row of numbers for the same seed, of which any is as good as another.
class Chance {
protected:
    explicit Chance(u64 seed = from_environment("TARN_RANDOM_SEED", 1))
        : seed_(seed), state_(seed) {}

    u64 draw() {
        u64 mixed = state_ += 0x9E3779B97F4A7C15;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
        return mixed ^ mixed >> 31;
    }
    u32 below(u32 limit) { return static_cast<u32>(draw()) % limit; }
    bool one_in(u32 n) { return below(n) == 0; }
    template <typename T>
    T pick(std::initializer_list<T> choices) {
        return *(choices.begin() + below(static_cast<u32>(choices.size())));
    }
    Bytes noise(std::size_t length);

    const u64 seed_;

private:
    u64 state_;
};

// What a process may grow by in the rest of a run: what it is, and not how long it lasts.
inline constexpr long MOST_KB = 8192;

// Counts to what the environment says, and tells how far it is.
class Counted {
public:
    Counted(const char *of_what, const char *variable, u64 otherwise);
    ~Counted(); // says how many there were

    bool go_on() {
        if (done_ % PART == 0)
            look();
        return done_++ < wanted_;
    }
    u64 wanted() const { return wanted_; }
    u64 done() const { return done_ - 1; } // within the loop

    // Of the process's resident memory since a tenth was done; 0 under the address
    // sanitizer, which keeps what is freed for a while.
    long grown_kb() const;

private:
    using clock = std::chrono::steady_clock;
    static constexpr u64 PART = 256;

    void look();

    const char *of_what_;
    const u64 wanted_;
    u64 done_ = 0;
    long resident_kb_ = 0; // at the tenth
    u64 told_done_ = 0;
    clock::time_point told_ = clock::now();
};
