// A loaded switch with the port "if5011" beside the plain one.
#pragma once

#include "support/switch_test.h"

#include "ifmgr/tarn_ifmgr_create.h"

class ProcTest : public SwitchTest {
protected:
    ProcTest() { port_ = add_named("if5011", 5011); }

    // A new port of that name, up and without link.
    tarn_if *add_named(const char *name, u32 ifindex) {
        return configure([=] {
            const u8 address[6] = {2, 0, 0, 0, 1, 11};
            EXPECT_EQ(tarn_ifmgr_switchport_create(name, address, 0x3, 0, ifindex, 0), 0);
            tarn_if *port = tarn_ifmgr_lookup_by_index(ifindex);
            tarn_ifmgr_if_ref_put(port);
            return port;
        });
    }

    tarn_if *port() { return port_; }

    static std::string show(const std::string &name) {
        userlevel::proc_result got = userlevel::proc_read("tarn/" + name);
        return got.result == 0 ? got.text : "error " + std::to_string(got.result);
    }
    static long store(const std::string &name, const std::string &text) {
        return userlevel::proc_write("tarn/" + name, text);
    }
    static bool exists(const std::string &name) {
        return userlevel::proc_read("tarn/" + name).result != -ENOENT;
    }

private:
    tarn_if *port_;
};
