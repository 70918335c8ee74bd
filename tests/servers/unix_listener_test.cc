#include "support/temporary_folder.h"

#include "machine/unix_listener.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;

class UnixListener : public ::testing::Test {
protected:
    void TearDown() override {
        if (fd_ >= 0)
            close(fd_);
    }

    std::string listen(int type = SOCK_SEQPACKET) { return machine::listen_at(path_, type, fd_); }
    struct stat status() const {
        struct stat found {};
        EXPECT_EQ(stat(path_.c_str(), &found), 0);
        return found;
    }

    const TemporaryFolder folder_;
    const std::string path_ = folder_ / "socket";
    int fd_ = -1;
};

TEST_F(UnixListener, it_is_for_its_owner_alone_whatever_the_mask) {
    mode_t old = umask(0);
    EXPECT_EQ(listen(), "");
    EXPECT_EQ(umask(old), 0u); // which is the whole process's
    EXPECT_EQ(status().st_mode, S_IFSOCK | 0600u);
    EXPECT_EQ(status().st_uid, geteuid());
}

TEST_F(UnixListener, a_group_is_let_in_by_its_number) {
    gid_t group = geteuid() == 0 ? 12345 : getegid();
    machine::let_in(group);
    EXPECT_EQ(listen(), "");
    EXPECT_EQ(status().st_mode, S_IFSOCK | 0660u);
    EXPECT_EQ(status().st_gid, group);
    EXPECT_EQ(status().st_uid, geteuid());
}

TEST_F(UnixListener, a_group_that_cannot_be_given_opens_nothing) {
    if (geteuid() == 0)
        GTEST_SKIP() << "root can give a file to any group";
    machine::let_in(12345);
    EXPECT_THAT(listen(), HasSubstr("not permitted"));
    struct stat found;
    EXPECT_NE(stat(path_.c_str(), &found) == 0 ? found.st_mode & 0077 : 0, 0660u & 0077);
}

TEST_F(UnixListener, a_file_that_is_no_socket_is_left_alone) {
    std::ofstream(path_) << "precious";
    EXPECT_THAT(listen(), HasSubstr("no socket"));
    std::string text;
    std::ifstream(path_) >> text;
    EXPECT_EQ(text, "precious");
}

TEST_F(UnixListener, a_link_is_not_followed) {
    std::ofstream(folder_ / "file") << "precious";
    std::filesystem::create_symlink(folder_ / "file", path_);
    EXPECT_THAT(listen(), HasSubstr("no socket"));
    EXPECT_TRUE(std::filesystem::is_symlink(path_));
}

TEST_F(UnixListener, one_that_is_served_is_left_alone_whatever_its_type) {
    ASSERT_EQ(listen(SOCK_STREAM), "");
    int second = -1;
    EXPECT_THAT(machine::listen_at(path_, SOCK_STREAM, second), HasSubstr("another switch"));
    EXPECT_THAT(machine::listen_at(path_, SOCK_SEQPACKET, second), HasSubstr("another switch"));
    EXPECT_EQ(second, -1);
}

TEST_F(UnixListener, one_that_nobody_serves_is_replaced) {
    ASSERT_EQ(listen(), "");
    close(fd_);
    EXPECT_EQ(listen(), "");
}

} // namespace
