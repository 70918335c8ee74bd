// The real switch in the process, with the chip in software under it, and tarnctl's words to it.
// Its devices are a pair in a network namespace of its own: where none can be made, no port is
// open.
#pragma once

#include "chip.h"
#include "chip_home.h"
#include "config/config.h"
#include "control.h"
#include "module/tarn_module.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sched.h>
#include <sstream>
#include <string>
#include <vector>

namespace real {

inline bool make_devices() {
    return (unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) &&
           std::system("ip link add dev1 type veth peer name dev2 >/dev/null 2>&1 && "
                       "ip link add dev3 type veth peer name dev4 >/dev/null 2>&1") == 0;
}

inline std::string say_to_chip(const std::string &line, bool &ok) {
    std::vector<char> reply(CHIP_REPLY);
    ok = chip_command(line.c_str(), reply.data(), reply.size()) == 0;
    return reply.data();
}

class Switch {
public:
    const bool has_devices = make_devices();
    std::string printed = {}, wrong = {};

    ~Switch() { chip_home_stop(); }

    // The status of the line; what it printed and what was wrong are kept.
    tarnctl::Status line(const std::string &text) {
        printed.clear();
        wrong.clear();
        tarnctl::Status status = tarnctl::run_line(session, text, wrong);
        userlevel::work_run();
        return status;
    }

    // Lines that must be good.
    void tell(const std::string &lines) {
        std::istringstream input(lines);
        for (std::string one; std::getline(input, one);)
            EXPECT_EQ(line(one), tarnctl::DONE) << one << ": " << wrong;
    }

    tarnctl::Status batch(const std::string &text) {
        printed.clear();
        wrong.clear();
        std::istringstream input(text);
        auto status = tarnctl::run_batch(session, input, "batch", false,
                                         [this](const std::string &what) { wrong = what; });
        userlevel::work_run();
        return status;
    }

    std::string shown(const std::string &text) {
        EXPECT_EQ(line(text), tarnctl::DONE) << text << ": " << wrong;
        return printed;
    }

    // All that the switch and its chip tell of themselves, but for counts.
    std::string state() {
        bool ok;
        std::string text = userlevel::proc_read("tarn/ifdb").text;
        for (const char *port : {"p1", "p2"})
            text += userlevel::proc_read(std::string("tarn/") + port + "/bridge").text;
        return text + say_to_chip("show vlans", ok) + say_to_chip("show settings", ok);
    }

private:
    const bool is_started_ = init_module() == 0 && chip_home_start() == 0; // before who asks it
    config::Own own_{say_to_chip};

public:
    tarnctl::Session session = own_.session([this](const std::string &text) { printed += text; });
};

} // namespace real
