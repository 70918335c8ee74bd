#include "servers/control_test.h"

namespace {

using ControlSocket = ControlTest;

TEST_F(ControlSocket, answers_a_line_and_says_how_it_went) {
    EXPECT_EQ(ask("echo words\n"), "words\nok\n");
    EXPECT_EQ(ask("nonsense\n"), "what is 'nonsense'?\nerror\n");
    EXPECT_EQ(ask("echo one\necho two\n"), "one\nok\n");
}

TEST_F(ControlSocket, a_line_may_come_in_parts_and_end_with_its_client) {
    UnixEnd client(path, SOCK_STREAM);
    for (const char *part : {"ec", "ho wo", "rds"}) {
        client.put(part);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    shutdown(client.fd(), SHUT_WR);
    EXPECT_EQ(client.read_all(), "words\nok\n");
}

TEST_F(ControlSocket, a_line_is_no_longer_than_32768) {
    std::string words(32768 - 5, 'w');
    EXPECT_EQ(ask("echo " + words + "too much\n"), words + "\nok\n");
}

TEST_F(ControlSocket, what_a_buffer_does_not_take_waits_for_its_reader) {
    UnixEnd client(path, SOCK_STREAM);
    client.put("big\n");
    ASSERT_TRUE(client.is_readable(5000));
    EXPECT_EQ(ask("echo others\n"), "others\nok\n");
    EXPECT_EQ(client.read_all(), std::string(BIG, '.') + "\nok\n");
}

TEST_F(ControlSocket, who_does_not_read_is_left_after_a_while) {
    UnixEnd client(path, SOCK_STREAM), silent(path, SOCK_STREAM);
    client.put("big\n");
    pollfd gone{.fd = client.fd(), .events = 0, .revents = 0};
    EXPECT_EQ(poll(&gone, 1, 20000), 1);
    EXPECT_LT(client.read_all().size(), BIG);
    EXPECT_EQ(silent.read_all(), "");
}

TEST_F(ControlSocket, ends_at_once_whatever_is_unread) {
    UnixEnd client(path, SOCK_STREAM), silent(path, SOCK_STREAM);
    client.put("big\n");
    ASSERT_TRUE(client.is_readable(5000));
    auto begin = std::chrono::steady_clock::now();
    live::control_end();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_EQ(access(path.c_str(), F_OK), -1);
}

} // namespace
