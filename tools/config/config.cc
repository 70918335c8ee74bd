#include "config/config.h"

#include "control.h"
#include "netlink.h"
#include "tarnctl/session.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <linux/netlink.h>

namespace config {

namespace {

constexpr const char *PROC_FOLDER = "tarn/";

// The files of the process's own proc tree.
class OwnProc : public tarnctl::ProcTree {
public:
    std::string name() const override { return "the proc tree of this process"; }

    std::string read(const std::string &path) override {
        userlevel::proc_result got = userlevel::proc_read(PROC_FOLDER + path);
        must(path, got.result);
        return got.text;
    }

    void write(const std::string &path, const std::string &text) override {
        must(path, userlevel::proc_write(PROC_FOLDER + path, text));
        userlevel::work_run();
    }

private:
    static void must(const std::string &path, long result) {
        if (result < 0)
            throw tarnctl::ProcError(path + ": " + std::strerror(static_cast<int>(-result)));
    }
};

// A netlink socket that hands back all that a message is answered with.
class OwnNetlink {
public:
    OwnNetlink() {
        socket_.set_option(NETLINK_GENERIC, NETLINK_EXT_ACK, 1);
        socket_.set_option(NETLINK_GENERIC, NETLINK_CAP_ACK, 1);
    }

    client::Bytes exchange(client::View message) {
        answer_.clear();
        socket_.send(message);
        userlevel::work_run();
        return answer_;
    }

private:
    client::Bytes answer_;
    userlevel::netlink_socket socket_{[this](client::View message) {
        answer_.insert(answer_.end(), message.begin(), message.end());
    }};
};

std::string say_to_chip(const Chip &chip, const std::string &line) {
    if (!chip)
        throw tarnctl::ProcError("chip: there is no chip here");
    bool ok = false;
    std::string reply = chip(line, ok);
    userlevel::work_run();
    if (!ok)
        throw tarnctl::ProcError("chip: " + reply.substr(0, reply.find_last_not_of('\n') + 1));
    return reply;
}

} // namespace

struct Own::Ends {
    Chip chip;
    OwnNetlink netlink = {};
    OwnProc proc = {};
    client::Client client{
        client::in_process([this](client::View message) { return netlink.exchange(message); })};
};

Own::Own(Chip chip) : ends_(new Ends{std::move(chip)}) {}
Own::~Own() = default;

tarnctl::Session Own::session(std::function<void(const std::string &text)> print) {
    Ends &ends = *ends_;
    return {.client = [&ends]() -> client::Client & { return ends.client; },
            .proc = [&ends]() -> tarnctl::ProcTree & { return ends.proc; },
            .chip = [&ends](const std::string &line) { return say_to_chip(ends.chip, line); },
            .sockets = []() -> std::string { throw tarnctl::ProcError("nobody listens yet"); },
            .follow =
                [](const std::string &) {
                    throw tarnctl::ProcError("a trace is for a switch that runs");
                },
            .print = std::move(print),
            .explain = [](const std::string &) -> std::string {
                throw tarnctl::ProcError("a frame is explained by a switch that runs");
            }};
}

std::string apply(const std::string &file, const Chip &chip) {
    std::ifstream input(file);
    if (!input)
        return file + ": cannot be read";
    Own own(chip);
    tarnctl::Session session =
        own.session([](const std::string &text) { std::fputs(text.c_str(), stdout); });
    std::string wrong;
    tarnctl::run_batch(session, input, file, false,
                       [&wrong](const std::string &what) { wrong = what; });
    return wrong;
}

} // namespace config
