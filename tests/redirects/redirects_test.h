// One redirect at a time, asked on its own or met by a frame.
#pragma once

#include "support/redirect_seams.h"
#include "support/switch_test.h"

inline constexpr u32 STOP = REDIRECT_STOP;
inline constexpr u32 KERNEL = REDIRECT_STOP | REDIRECT_POST_KERNEL;
inline constexpr u32 MASTER = REDIRECT_STOP | REDIRECT_STACK_REPLICATE;

class Redirects : public SwitchTest {
protected:
    struct Decision {
        u32 flags = 0;
        u32 reason = 0;
        bool operator==(const Decision &) const = default;
    };
    friend void PrintTo(const Decision &decision, std::ostream *out) {
        *out << "flags " << decision.flags << " reason " << decision.reason;
    }

    // What one redirect decides on a frame, asked on its own; and why, where it says so.
    Decision decide(const std::string &name, const tarn_pkt_info &info) {
        tarn_pkt_info copy = info;
        redirect_instruct instruct{};
        why = {};
        copy.why = &why;
        redirect(name).match(&copy, &instruct);
        EXPECT_EQ(instruct.pre_post_arg, nullptr);
        return {instruct.flags, instruct.reason};
    }
    redirect_why why{};

    // A classification that passes the gate.
    static tarn_pkt_info passing(u32 ethertype = 0) {
        tarn_pkt_info info{};
        info.ethertype = ethertype;
        info.vlan_member_ok = 1;
        return info;
    }
    // The classifications that do not.
    static std::vector<tarn_pkt_info> failing(const tarn_pkt_info &from) {
        std::vector<tarn_pkt_info> all(4, from);
        all[0].vlan_port_disabled = 1;
        all[1].src_mac_is_own = 1;
        all[2].low_mem = 1;
        all[3].vlan_member_ok = 0;
        all[3].ingress_filter = 1;
        return all;
    }
    // Each is told in words of its own.
    void expect_stopped_at_the_gate(const std::string &name, const tarn_pkt_info &info,
                                    u32 reason) {
        constexpr const char *WORDS[] = {"gate: the VLAN is disabled on the port",
                                         "gate: the source MAC is the switch's own",
                                         "gate: memory is short",
                                         "gate: the port is no member of the VLAN and filters on "
                                         "ingress"};
        auto bad = failing(info);
        for (std::size_t i = 0; i < bad.size(); i++) {
            EXPECT_EQ(decide(name, bad[i]), (Decision{STOP, reason})) << name;
            EXPECT_STREQ(why.rule, WORDS[i]) << name;
        }
        tarn_pkt_info no_member = info; // without a filter that is no reason
        no_member.vlan_member_ok = 0;
        EXPECT_NE(decide(name, no_member), (Decision{STOP, reason})) << name;
    }

    redirect_seams::Answers &answers() { return redirect_seams::answers(); }
};
