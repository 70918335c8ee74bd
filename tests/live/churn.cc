// Changes the bind graph of a live switch from several clients at once, with the list of
// tests/control/nl_churn.h; tests/live/graph starts the switch, and traffic beside it.
//
//   live-churn SOCKET SECONDS
//
// The last round is one client's alone, so that nothing of it is left. 0: each command was
// answered.
#include "client/client.h"
#include "control/nl_churn.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

constexpr int CHURNERS = 3;
constexpr int PATIENCE = 20000; // milliseconds

class Churner {
public:
    explicit Churner(const char *path) : transport_(client::open_socket(path, wrong_)) {
        if (transport_)
            family_ = client::Client(client::open_socket(path, wrong_)).family();
    }

    // Whether the command of that number is answered, with whatever result.
    bool give(unsigned number) {
        nl_message message;
        if (!transport_ || nl_churn_build(&message, family_, number) != 0)
            return false;
        message.u.header.nlmsg_len = message.length;
        wrong_ = transport_->send({message.u.bytes, message.length});
        return wrong_.empty() && !transport_->receive(PATIENCE, wrong_).empty();
    }
    const std::string &wrong() const { return wrong_; }

private:
    std::string wrong_;
    std::unique_ptr<client::Transport> transport_;
    std::uint16_t family_ = 0;
};

std::atomic<bool> _stop = false;
std::atomic<unsigned long> _commands = 0;
std::atomic<int> _failed = 0;

void _churn(const char *path, unsigned first, unsigned count) {
    try {
        Churner one(path);
        for (unsigned number = first; !_stop && number - first != count; number++, _commands++) {
            if (one.give(number))
                continue;
            std::fprintf(stderr, "command %lu was not answered: %s\n", _commands.load(),
                         one.wrong().empty() ? "no time was left" : one.wrong().c_str());
            _failed++;
            _stop = true;
        }
    } catch (const client::Error &error) {
        std::fprintf(stderr, "%s\n", error.what());
        _failed++;
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3 || std::atoi(argv[2]) <= 0) {
        std::fprintf(stderr, "live-churn SOCKET SECONDS\n");
        return 2;
    }
    std::vector<std::thread> churners;
    for (unsigned k = 0; k < CHURNERS; k++)
        churners.emplace_back(_churn, argv[1], k * NL_CHURN_MESSAGES / CHURNERS, -1u);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[2]));
    while (!_stop && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    _stop = true;
    for (std::thread &one : churners)
        one.join();
    _stop = false;
    _churn(argv[1], 0, NL_CHURN_MESSAGES);
    std::printf("%lu commands by %d clients\n", _commands.load(), CHURNERS);
    return _failed ? 1 : 0;
}
