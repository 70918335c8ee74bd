// The protocol sockets of a process, in programs that were written for those of a kernel.
#include "support/case_switch.h"
#include "support/temporary_folder.h"
#include "support/transmit_test.h"

#include "machine/socket_server.h"
#include "servers/carried_end.h"
#include "socket_calls.h"
#include "tarn/socket_carrier.h"

#include <atomic>
#include <filesystem>
#include <poll.h>
#include <sstream>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;

// A switch whose sockets are served, and daemons under the preload library.
class Carrier : public TransmitTest {
protected:
    Carrier() {
        EXPECT_EQ(machine::sockets_serve(path_), "");
        add_port(2);
        fake_driver::attach_without_flood();
    }
    ~Carrier() override {
        machine::sockets_end();
        log();
        remember(); // the records of closed sockets stay, on purpose
    }

    // Its exit status, or -1.
    int run_daemon(const std::vector<std::string> &arguments, const char *path = nullptr) {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
        std::vector<std::string> words = {CARRIED_DAEMON, std::to_string(pair[1])};
        words.insert(words.end(), arguments.begin(), arguments.end());
        pid_t child = fork();
        if (child == 0)
            become(words, path ? path : path_.c_str());
        ::close(pair[1]);
        answer_all(pair[0]);
        ::close(pair[0]);
        int status = -1;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const TemporaryFolder folder_;
    const std::string path_ = folder_ / "sockets";

private:
    [[noreturn]] static void become(const std::vector<std::string> &words, const char *path) {
        std::vector<char *> pointers;
        for (const std::string &word : words)
            pointers.push_back(const_cast<char *>(word.c_str()));
        pointers.push_back(nullptr);
        setenv("LD_PRELOAD", TARN_PRELOAD, 1);
        setenv(TARN_SOCKETS_VARIABLE, path, 1);
        execv(pointers[0], pointers.data());
        _exit(127);
    }

    void answer_all(int fd) {
        char line[1024];
        for (ssize_t length; (length = recv(fd, line, sizeof(line), 0)) > 0;) {
            std::string reply = answer({line, static_cast<std::size_t>(length)});
            ::send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
    }

    std::string answer(const std::string &line) {
        std::istringstream words(line);
        std::string word, name;
        u32 a = 0, b = 0;
        words >> word;
        if (word == "said")
            return last_line();
        if (word == "list")
            return userlevel::proc_read("net/tarn_sockets").text;
        if (word == "end")
            machine::sockets_end();
        if (word == "flood")
            flood();
        if (word == "set" && words >> name >> a)
            case_switch::set(name, a);
        if (word == "stops" && words >> name >> a)
            return std::to_string(case_switch::stops(name, a));
        if (word == "deliver")
            deliver(words);
        words >> a >> b;
        if (word == "sent")
            return last_sent(a);
        if (word == "rights")
            userlevel::socket_caller(a != 0, true);
        if (word == "udld")
            case_switch::set_udld(a, b);
        return "ok";
    }

    void deliver(std::istream &words) {
        u32 ifindex = 0, local = 0;
        std::string hex;
        Arrival arrival;
        words >> ifindex >> arrival.vid >> arrival.meta.flags >> arrival.meta.code >> local >> hex;
        arrival.port = ifindex - 5000;
        arrival.meta.local = static_cast<u8>(local);
        Bytes bytes(hex.size() / 2);
        case_bytes(hex.c_str(), bytes.data());
        receive(bytes, arrival);
    }

    // From two threads, as from two CPUs.
    static void flood() {
        const Bytes frame = Frame().to("01:15:4e:00:00:01").type(0x88E3).padded();
        auto deliver_some = [&frame] {
            const tarn_rx_meta meta{};
            for (int i = 0; i < 2000; i++)
                rxtx_hw_packet_recv(userlevel::frame_make(frame), 5001, 1, &meta);
        };
        std::thread other(deliver_some);
        deliver_some();
        other.join();
    }

    // A packet is never empty.
    std::string last_line() {
        auto lines = log();
        return lines.empty() ? std::string("", 1) : lines.back();
    }

    static std::string last_sent(u32 port) {
        auto [found, bytes] = case_switch::last_sent(port);
        if (!found)
            return "-";
        std::string hex;
        for (u8 byte : bytes) {
            char two[3];
            std::snprintf(two, sizeof(two), "%02x", byte);
            hex += two;
        }
        return hex;
    }
};

class CarriedCases : public Carrier, public ::testing::WithParamInterface<const char *> {};

TEST_P(CarriedCases, hold) {
    EXPECT_EQ(run_daemon({GetParam()}), 0);
}

std::vector<const char *> case_names() {
    std::vector<const char *> names;
    for (const socket_case &one : socket_cases)
        names.push_back(one.name);
    return names;
}
INSTANTIATE_TEST_SUITE_P(Both, CarriedCases, ::testing::ValuesIn(case_names()),
                         [](const auto &one) { return std::string(one.param); });

TEST_F(Carrier, without_a_switch_there_are_no_families) {
    EXPECT_EQ(run_daemon({"nobody_serves"}, "/nowhere/sockets"), 0);
}

TEST_F(Carrier, whom_the_socket_is_closed_to_has_no_right_to_open) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    EXPECT_EQ(run_daemon({"a_stranger"}), 0);
}

TEST_F(Carrier, a_switch_that_ends_is_a_network_that_is_down) {
    EXPECT_EQ(run_daemon({"the_switch_ends"}), 0);
}

TEST_F(Carrier, a_path_is_served_once_and_can_be_served_again) {
    EXPECT_THAT(machine::sockets_serve(path_), HasSubstr("another switch serves it"));
    EXPECT_THAT(machine::sockets_serve(""), HasSubstr("1 to 107 characters"));
    EXPECT_THAT(machine::sockets_serve(std::string(108, 'x')), HasSubstr("1 to 107 characters"));
    machine::sockets_end();
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_THAT(machine::sockets_serve(folder_ / "no/such"), HasSubstr("No such file"));
    EXPECT_EQ(machine::sockets_serve(path_), "");
}

// What is no call of ours ends that connection, and nothing else.
TEST_F(Carrier, a_client_that_talks_nonsense_is_left) {
    const tarn_carrier_request lies{.call = TARN_CARRIER_SEND, .name_length = 1u << 30};
    for (std::size_t length : {std::size_t{1}, sizeof(lies)}) {
        CarriedEnd client(path_);
        EXPECT_EQ(::send(client.fd(), &lies, length, MSG_NOSIGNAL), static_cast<ssize_t>(length));
        EXPECT_TRUE(client.read().empty());
    }
    EXPECT_EQ(run_daemon({"two_sockets"}), 0);
}

TEST_F(Carrier, descriptors_beside_a_request_are_not_kept) {
    auto descriptors = [] {
        std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    CarriedEnd keeps(path_);
    EXPECT_EQ(keeps.open(TARN_AF_LACP), 0);
    const auto before = descriptors();
    const tarn_carrier_request look{.call = TARN_CARRIER_RECEIVE, .size = 100};
    for (std::size_t more : {1u, 2u, 100u}) {
        CarriedEnd client(path_);
        EXPECT_EQ(client.open(TARN_AF_LACP), 0);
        EXPECT_EQ(client.call(look, std::vector<int>(more, 0)), 1); // it is no call of ours
        EXPECT_TRUE(client.read().empty());
    }
    EXPECT_EQ(keeps.call(look), -EINVAL);
    // That of a connection is closed behind its end.
    for (int i = 0; i < 1000 && descriptors() != before; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(descriptors(), before);
}

// Under the thread sanitizer too.
class CarrierThreads : public Carrier {};

TEST_F(CarrierThreads, readers_beside_traffic_get_each_frame_once) {
    EXPECT_EQ(run_daemon({"readers_beside_traffic"}), 0);
}

// Frames of which a socket has room for one, so that none wakes for those before it: what came
// between the socket and who is told of its frames has to be marked by itself.
TEST_F(CarrierThreads, a_frame_that_comes_while_a_socket_opens_is_marked) {
    constexpr int sockets = 1000;
    constexpr u32 more_than_half = 120000;
    const Bytes frame = Frame().to("01:80:c2:00:00:02").type(0x8809).padded();
    for (int i = 0; i < sockets; i++) {
        CarriedEnd client(path_);
        std::atomic<bool> opened = false;
        std::thread driver([&] {
            const tarn_rx_meta meta{};
            while (!opened)
                rxtx_hw_packet_recv(userlevel::frame_make(frame, more_than_half), 5001, 1, &meta);
            rxtx_hw_packet_recv(userlevel::frame_make(frame, more_than_half), 5001, 1, &meta);
        });
        EXPECT_EQ(client.open(TARN_AF_LACP), 0);
        opened = true;
        driver.join();
        ASSERT_EQ(client.look(), 46);
        ASSERT_TRUE(client.is_readable()) << "socket " << i;
    }
}

// Waits, descriptors: what only a program can do.
TEST_F(Carrier, a_program_sees_what_it_would_see_of_a_kernel) {
    EXPECT_EQ(run_daemon({"of_a_program"}), 0);
}

} // namespace
