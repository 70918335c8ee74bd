// The process's own /proc, as the core and a test see it.
#include "kernel/parse.h"
#include "kernel/proc.h"

#include "control.h"
#include "proc.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace {

using ::testing::ElementsAre;

std::atomic<bool> is_inside, may_leave;
std::string stored;

int show_data(seq_file *view, void *data) {
    seq_printf(view, "%s", static_cast<const char *>(data));
    return 0;
}
int show_error(seq_file *, void *) {
    return -ENOMEM;
}
int show_long(seq_file *view, void *) {
    is_inside = true;
    while (!may_leave)
        std::this_thread::yield();
    seq_printf(view, "done");
    return 0;
}
long store_text(const proc_text &written, void *) {
    stored = std::string(written.text, written.length);
    return static_cast<long>(written.whole);
}

constexpr proc_row READ{"read", show_data};
constexpr proc_row WRITE{"write", nullptr, store_text, 4};
constexpr proc_row LONG_WRITE{"long", nullptr, store_text, 300, -1};
constexpr proc_row FAILS{"fails", show_error};
constexpr proc_row WAITS{"waits", show_long};

char text[] = "hello";
proc_file read_file{&READ, text}, write_file{&WRITE, nullptr}, long_file{&LONG_WRITE, nullptr},
    fails_file{&FAILS, nullptr}, waits_file{&WAITS, nullptr};

std::vector<std::string> warnings() {
    std::vector<std::string> lines;
    for (const userlevel::log_line &line : userlevel::log_take())
        lines.push_back(std::to_string(line.level) + " " + line.text);
    return lines;
}

TEST(ProcHome, files_stand_in_directories) {
    proc_dir_entry *top = proc_mkdir("top", nullptr);
    proc_dir_entry *below = proc_mkdir("below", top);
    ASSERT_NE(proc_create_file("read", 0444, below, &read_file), nullptr);
    EXPECT_EQ(userlevel::proc_read("top/below/read").text, "hello");
    EXPECT_EQ(userlevel::proc_read("top/read").result, -ENOENT);
    EXPECT_EQ(userlevel::proc_read("top/below").result, -EISDIR);
    EXPECT_EQ(userlevel::proc_write("top/below", "x"), -EISDIR);
    EXPECT_EQ(userlevel::proc_write("top/none", "x"), -ENOENT);
    EXPECT_EQ(userlevel::proc_write("top/below/read", "x"), -EIO);
    EXPECT_EQ(userlevel::proc_stat("top")->links, 3u);
    EXPECT_EQ(userlevel::proc_stat("top/below")->mode, S_IFDIR | 0555u);
    EXPECT_EQ(userlevel::proc_stat("top/below/read")->mode, S_IFREG | 0444u);
    proc_remove(top);
    EXPECT_TRUE(userlevel::proc_list("").empty());
    EXPECT_TRUE(userlevel::live().empty());
}

TEST(ProcHome, a_result_of_a_view_is_the_result_of_the_read) {
    proc_dir_entry *file = proc_create_file("fails", 0444, nullptr, &fails_file);
    EXPECT_EQ(userlevel::proc_read("fails").result, -ENOMEM);
    proc_remove(file);
}

TEST(ProcHome, names_that_are_taken_or_none_are_warned_of) {
    proc_dir_entry *top = proc_mkdir("top", nullptr);
    EXPECT_EQ(proc_mkdir("top", nullptr), nullptr);
    EXPECT_EQ(proc_create_file("", 0444, top, &read_file), nullptr);
    EXPECT_EQ(proc_create_file("a/b", 0444, top, &read_file), nullptr);
    EXPECT_EQ(proc_mkdir("..", top), nullptr);
    EXPECT_EQ(warnings().size(), 4u);
    proc_remove(top);
    proc_remove(nullptr);
}

TEST(ProcHome, each_entry_can_fail) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(proc_mkdir("top", nullptr), nullptr);
    userlevel::fail_allocation(1);
    EXPECT_EQ(proc_create_file("read", 0444, nullptr, &read_file), nullptr);
    EXPECT_TRUE(warnings().empty());
    EXPECT_TRUE(userlevel::proc_list("").empty());
}

TEST(ProcHome, a_write_is_copied_up_to_its_limit) {
    proc_dir_entry *file = proc_create_file("write", 0222, nullptr, &write_file);
    EXPECT_EQ(userlevel::proc_write("write", "123456"), 6);
    EXPECT_EQ(stored, "1234");
    EXPECT_EQ(userlevel::proc_write("write", ""), 0);
    EXPECT_EQ(stored, "");
    EXPECT_EQ(userlevel::proc_write("write", nullptr, 1), -EFAULT);
    EXPECT_EQ(userlevel::proc_read("write").result, -EIO);
    proc_remove(file);
}

TEST(ProcHome, a_long_write_takes_memory_for_its_text_and_gives_it_back) {
    proc_dir_entry *file = proc_create_file("long", 0222, nullptr, &long_file);
    userlevel::snapshot before = userlevel::take_snapshot();
    EXPECT_EQ(userlevel::proc_write("long", std::string(400, 'x')), 400);
    EXPECT_EQ(stored, std::string(300, 'x'));
    userlevel::fail_allocation(1);
    EXPECT_EQ(userlevel::proc_write("long", "x"), -1);
    EXPECT_TRUE(userlevel::leaked_since(before).empty());
    proc_remove(file);
}

TEST(ProcHomeThreads, a_removal_waits_for_who_is_inside) {
    proc_dir_entry *file = proc_create_file("waits", 0444, nullptr, &waits_file);
    std::string got;
    std::thread reader([&] { got = userlevel::proc_read("waits").text; });
    while (!is_inside)
        std::this_thread::yield();
    std::atomic<bool> removed = false;
    std::thread remover([&] {
        proc_remove(file);
        removed = true;
    });
    while (userlevel::proc_stat("waits"))
        std::this_thread::yield();
    EXPECT_FALSE(removed);
    may_leave = true;
    reader.join();
    remover.join();
    EXPECT_EQ(got, "done");
}

// --- numbers -------------------------------------------------------------------------------------

TEST(Numbers, are_read_as_a_kernel_reads_them) {
    const struct {
        const char *text;
        unsigned base;
        long value;
        long used;
    } rows[] = {
        {"12x", 10, 12, 2},  {"", 10, 0, 0},      {" 1", 10, 0, 0},
        {"+1", 10, 0, 0},    {"-12", 10, -12, 3}, {"-", 10, 0, 1},
        {"--1", 10, 0, 1},   {"0x1f", 10, 0, 1},  {"0x1f", 16, 31, 4},
        {"0X1F", 16, 31, 4}, {"1fG", 16, 31, 2},  {"0x", 16, 0, 2},
        {"0x1f", 0, 31, 4},  {"0xg", 0, 0, 1},    {"017", 0, 15, 3},
        {"08", 0, 0, 1},     {"99", 0, 99, 2},    {"18446744073709551617", 10, 1, 20},
    };
    for (const auto &row : rows) {
        char *end = nullptr;
        EXPECT_EQ(simple_strtol(row.text, &end, row.base), row.value) << row.text;
        EXPECT_EQ(end - row.text, row.used) << row.text;
    }
    EXPECT_EQ(simple_strtoul("-1", nullptr, 10), 0u);
}

} // namespace
