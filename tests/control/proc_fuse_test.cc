// The process's tree as a file system: mounted in a mount namespace of the test's own.
#include "../../lab/tests/proc_run.h"
#include "control/proc_test.h"
#include "support/temporary_folder.h"

#include "machine/proc_fuse.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/wait.h>

namespace {

using ::testing::HasSubstr;

std::string enter_namespaces() {
    uid_t user = geteuid();
    gid_t group = getegid();
    if (unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0)
        return "no mount namespace can be made";
    if (user != 0) {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
        std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return "mounts cannot be made private";
    return access("/dev/fuse", R_OK | W_OK) == 0 ? "" : "/dev/fuse cannot be opened";
}

class ProcFuseTest : public ProcTest {
protected:
    void SetUp() override {
        if (std::string lacking = enter_namespaces(); !lacking.empty())
            GTEST_SKIP() << lacking;
    }
    void TearDown() override { machine::proc_unmount(); }

    const std::string &root() { return root_; }
    std::string file(const std::string &name) { return root_ + "/" + name; }

private:
    const TemporaryFolder folder_;
    const std::string root_ = folder_ / "tarn";
};

TEST_F(ProcFuseTest, every_file_prints_and_takes_what_it_must) {
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    EXPECT_EQ(proc_run_all(root().c_str()), 0);
    log();
}

TEST_F(ProcFuseTest, directories_are_those_of_the_tree) {
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    struct stat status;
    ASSERT_EQ(stat(root().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0550u); // of a kernel: 0555
    EXPECT_EQ(status.st_nlink, 4u);             // port1, if5011
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(file("if5011")))
        names.insert(entry.path().filename());
    EXPECT_THAT(names, ::testing::ElementsAre("auth", "authfwd", "authsupp", "bridge",
                                              "disablevlans", "openflow"));
    add_named("later", 5012);
    EXPECT_EQ(stat(file("later").c_str(), &status), 0);
    EXPECT_EQ(stat(file("never").c_str(), &status), -1);
    EXPECT_EQ(open(file("new").c_str(), O_WRONLY | O_CREAT, 0666), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(ProcFuseTest, an_open_view_is_printed_anew_from_its_start) {
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    char text[8] = "";
    int view = open(file("pktdebugvlan").c_str(), O_RDONLY);
    EXPECT_EQ(read(view, text, 1), 1);
    EXPECT_EQ(text[0], '0');
    EXPECT_EQ(store("pktdebugvlan", "45\n"), 3);
    EXPECT_EQ(read(view, text, sizeof(text)), 1);
    EXPECT_EQ(text[0], '\n');
    EXPECT_EQ(read(view, text, sizeof(text)), 0);
    EXPECT_EQ(lseek(view, 0, SEEK_SET), 0);
    EXPECT_EQ(read(view, text, sizeof(text)), 3);
    EXPECT_EQ(std::string(text, 3), "45\n");
    EXPECT_EQ(pread(view, text, 1, 1), 1);
    EXPECT_EQ(text[0], '5');
    close(view);
}

TEST_F(ProcFuseTest, a_view_of_a_port_that_went_cannot_be_read) {
    tarn_if *gone = add_named("gone", 5012);
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    char byte;
    int view = open(file("gone/bridge").c_str(), O_RDONLY);
    ASSERT_EQ(read(view, &byte, 1), 1);
    configure([=] { tarn_ifmgr_delete_interface(gone); });
    EXPECT_EQ(read(view, &byte, 1), -1);
    EXPECT_EQ(errno, EIO);
    close(view);
    EXPECT_EQ(open(file("gone/bridge").c_str(), O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(ProcFuseTest, shells_write_to_it) {
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    std::string command = "echo 7 > " + file("pktdebugvlan");
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(show("pktdebugvlan"), "7\n");
}

TEST_F(ProcFuseTest, what_a_killed_process_left_is_replaced) {
    pid_t child = fork();
    if (child == 0) {
        if (machine::proc_mount(root(), "tarn") != "")
            _exit(1);
        raise(SIGKILL);
    }
    int status;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    struct stat stale;
    ASSERT_EQ(stat(root().c_str(), &stale), -1);
    ASSERT_EQ(errno, ENOTCONN);
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    EXPECT_EQ(access(file("ifdb").c_str(), R_OK), 0);
    machine::proc_unmount();
    EXPECT_EQ(std::filesystem::remove(root()), true) << "it was there before this process";
}

TEST_F(ProcFuseTest, a_path_that_it_made_goes_with_it) {
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    machine::proc_unmount();
    EXPECT_FALSE(std::filesystem::exists(root()));
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
}

TEST_F(ProcFuseTest, somebody_inside_does_not_keep_it_from_ending) {
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    int view = open(file("ifdb").c_str(), O_RDONLY);
    machine::proc_unmount();
    char byte;
    EXPECT_EQ(read(view, &byte, 1), -1);
    close(view);
}

TEST_F(ProcFuseTest, what_is_in_the_way_is_told) {
    EXPECT_THAT(machine::proc_mount(root() + "/deeper", "tarn"), HasSubstr("No such file"));
    std::ofstream(root()) << "a file";
    EXPECT_THAT(machine::proc_mount(root(), "tarn"), HasSubstr("it is no directory"));
    std::filesystem::remove(root());
    ASSERT_EQ(machine::proc_mount(root(), "tarn"), "");
    EXPECT_THAT(machine::proc_mount(root(), "tarn"), HasSubstr("mounted already"));
}

TEST_F(ProcFuseTest, a_path_in_use_is_left_alone) {
    ASSERT_EQ(mkdir(root().c_str(), 0755), 0);
    ASSERT_EQ(mount("none", root().c_str(), "tmpfs", 0, nullptr), 0);
    EXPECT_THAT(machine::proc_mount(root(), "tarn"), HasSubstr("a file system is mounted there"));
    umount(root().c_str());
    rmdir(root().c_str());
}

} // namespace
