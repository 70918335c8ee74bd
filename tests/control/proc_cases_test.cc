// The list of cases that the mounted tree and a kernel are held to, in the process.
#include "../../lab/tests/proc_run.h"
#include "control/proc_test.h"

namespace {

TEST_F(ProcTest, every_file_prints_and_takes_what_it_must) {
    for (const proc_case &step : proc_cases) {
        std::string path = std::string("tarn/") + step.file;
        if (step.how == PROC_WRITE) {
            EXPECT_EQ(userlevel::proc_write(path, step.text), step.result)
                << step.file << " <- " << step.text;
            continue;
        }
        userlevel::proc_result got = userlevel::proc_read(path);
        EXPECT_EQ(got.result, step.result) << step.file;
        EXPECT_TRUE(proc_holds(&step, got.text.c_str()))
            << step.file << ": wanted " << step.text << ", got " << got.text;
    }
    EXPECT_THAT(log(), ::testing::ElementsAre("2 Error enabling redirect 'pppo'\n",
                                              "2 Error disabling redirect ''\n",
                                              "2 Error disabling redirect 'xxxxxxxxxxxxxxxxxx'\n"));
}

TEST_F(ProcTest, modes_follow_from_what_a_file_can) {
    std::map<std::string, u32> modes;
    for (const char *directory : {"", "if5011/"})
        for (const userlevel::proc_name &entry :
             userlevel::proc_list(std::string("tarn/") + directory))
            modes[directory + entry.name] = entry.mode;
    for (const proc_mode &wanted : proc_modes) {
        EXPECT_EQ(modes[wanted.file], S_IFREG | wanted.mode) << wanted.file;
        modes.erase(wanted.file);
    }
    EXPECT_EQ(modes["if5011"], S_IFDIR | 0555u);
    EXPECT_EQ(modes["port1"], S_IFDIR | 0555u);
    EXPECT_EQ(modes.size(), 2u) << "there is more than the list tells";
}

} // namespace
