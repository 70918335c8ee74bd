// The protocol sockets of a process, in programs that were written for those of a kernel.
#include "support/transmit_test.h"

#include "../../lab/tests/socket_cases.h"
#include "machine/socket_server.h"
#include "socket_calls.h"
#include "sockets/sockets.h"
#include "tarn/socket_carrier.h"

#include <filesystem>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;

// A switch whose sockets are served, and daemons under the preload library.
class Carrier : public TransmitTest {
protected:
    Carrier() {
        char folder[] = "/tmp/tarn-carrier-XXXXXX";
        folder_ = mkdtemp(folder);
        path_ = folder_ + "/sockets";
        EXPECT_EQ(machine::sockets_serve(path_), "");
    }
    ~Carrier() override {
        machine::sockets_end();
        std::filesystem::remove_all(folder_);
        log();
        remember(); // the records of closed sockets stay, on purpose
    }

    // Its exit status, or -1.
    int run_daemon(const std::vector<std::string> &arguments,
                   const std::string &program = CARRIED_DAEMON, const char *path = nullptr) {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
        std::vector<std::string> words = {program, std::to_string(pair[1])};
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

    std::string path_, folder_;

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
        std::string word;
        unsigned a = 0, b = 0, c = 0;
        words >> word;
        if (word == "said")
            return last_line();
        if (word == "list")
            return userlevel::proc_read("net/tarn_sockets").text;
        if (word == "sent")
            return last_sent();
        words >> a >> b;
        if (word == "rights")
            userlevel::socket_caller(a != 0, true);
        if (word == "udld") {
            tarn_udld_enable(static_cast<u8>(a));
            tarn_udld_set_hw_filter(port1()->ifindex, static_cast<u8>(b));
        }
        if (word == "deliver" && words >> c >> word)
            deliver(a, b, c, word);
        return "ok";
    }

    void deliver(u32 ifindex, u32 vid, u32 flags, const std::string &hex) {
        Bytes bytes(hex.size() / 2);
        case_bytes(hex.c_str(), bytes.data());
        Arrival arrival{.port = ifindex - 5000, .vid = vid};
        arrival.meta.flags = flags;
        receive(bytes, arrival);
    }

    // A packet is never empty.
    std::string last_line() {
        auto lines = log();
        return lines.empty() ? std::string("", 1) : lines.back();
    }

    std::string last_sent() {
        auto sent = std::exchange(driver().sent, {});
        if (sent.empty())
            return "-";
        std::string hex;
        for (u8 byte : sent.back().bytes) {
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

// Threads, waits, descriptors: what only a program can do.
TEST_F(Carrier, a_program_sees_what_it_would_see_of_a_kernel) {
    EXPECT_EQ(run_daemon({"of_a_program"}), 0);
}

} // namespace
