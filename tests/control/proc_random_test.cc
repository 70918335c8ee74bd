// Any text into every file of /proc/tarn, by turns, while frames pass: no more is taken than was
// given, every file can be read all the time, and nothing is left behind.
//
// TARN_RANDOM_WRITES sets how many into each (2000 unless said otherwise), TARN_RANDOM_SEED the
// seed.
#include "control/proc_test.h"
#include "support/chance.h"

#include <sys/stat.h>

namespace {

class ProcRandom : public ProcTest, protected Chance {
protected:
    ProcRandom() { list("tarn"); }

    void list(const std::string &folder) {
        for (const userlevel::proc_name &entry : userlevel::proc_list(folder)) {
            std::string path = folder + "/" + entry.name;
            if (S_ISDIR(entry.mode))
                list(path);
            else
                files_.push_back(path);
        }
    }

    // What a file may take, or nearly; now and then anything.
    std::string text() {
        std::string said;
        switch (below(8)) {
        case 0:
            said = std::to_string(static_cast<i32>(draw()));
            break;
        case 1:
            for (u32 words = below(6); words > 0; words--)
                said += std::to_string(below(4096)) + pick({" ", ",", "-", "\n", ""});
            break;
        case 2:
            for (u8 byte : noise(below(one_in(64) ? 5000 : 64)))
                said += static_cast<char>(byte);
            return said;
        case 3:
            said = pick({"pppoe", "vrrp", "l2drop", "ipv4", "nobody", "", "0x10", "-1"});
            break;
        default:
            said = std::to_string(below(3));
        }
        return said + (one_in(8) ? "" : "\n");
    }

    void write_each() {
        for (const std::string &path : files_) {
            const std::string said = text();
            long result = one_in(256) ? userlevel::proc_write(path, nullptr, said.size())
                                      : userlevel::proc_write(path, said);
            taken_ += result > 0;
            EXPECT_GE(result, -4095) << path;
            EXPECT_LE(result, static_cast<long>(said.size())) << path << " <- " << said;
        }
    }

    void read_each() {
        for (const std::string &path : files_) {
            const userlevel::proc_result got = userlevel::proc_read(path);
            EXPECT_TRUE(got.result == 0 || got.result == -EIO || got.result == -EINVAL)
                << path << ": " << got.result;
            read_ += got.text.size();
        }
    }

    std::vector<std::string> files_;
    u64 taken_ = 0, read_ = 0;
};

TEST_F(ProcRandom, any_text_leaves_nothing_behind) {
    userlevel::log_keep(false);
    ASSERT_GE(files_.size(), 30u);
    Counted rounds("writes to each file", "TARN_RANDOM_WRITES", 2000);
    while (rounds.go_on()) {
        write_each();
        receive(Frame().type(0x8863).padded());
        if (rounds.done() % 128 == 0) {
            calls() = {};
            read_each();
            expect_nothing_leaked();
        }
        ASSERT_FALSE(HasFailure()) << "seed " << seed_ << ", write " << rounds.done();
    }
    EXPECT_LT(rounds.grown_kb(), MOST_KB);
    EXPECT_GT(taken_, rounds.wanted() * 10);
    EXPECT_GT(read_, rounds.wanted());
    userlevel::log_keep(true);
    log();
}

} // namespace
