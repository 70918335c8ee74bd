// authglobal, and auth, authfwd and authsupp of a port.
#include "control/proc_test.h"

#include "control/nl_callees.h"
#include "security/auth_state.h"

#include <deque>
#include <netinet/in.h>

namespace {

// A table as the authenticator fills it.
class Supplicants {
public:
    explicit Supplicants(tarn_if *port) : port_(port) {
        for (tarn_auth_link &bucket : table_.buckets)
            bucket = {&bucket, &bucket};
        port_->auth_supp_table = &table_;
    }
    ~Supplicants() { port_->auth_supp_table = nullptr; }

    void add(u8 last, bool authed, tarn_if *l3, std::initializer_list<u16> vids) {
        tarn_auth_supp &supp = supps_.emplace_back();
        const u8 mac[6] = {2, 0xAB, 0, 0, 1, last};
        std::copy(mac, mac + 6, supp.mac);
        supp.authed = authed;
        supp.initial_l3 = l3;
        supp.vlans = {&supp.vlans, &supp.vlans};
        for (u16 vid : vids) {
            tarn_auth_supp_vlan &vlan = vlans_.emplace_back();
            vlan.vid = vid;
            append(&vlan.link, &supp.vlans);
        }
        append(&supp.list, &table_.buckets[last]);
    }

private:
    static void append(tarn_auth_link *link, tarn_auth_link *head) {
        *link = {head, head->prev};
        head->prev->next = link;
        head->prev = link;
    }

    tarn_if *port_;
    tarn_auth_supp_table table_;
    std::deque<tarn_auth_supp> supps_;
    std::deque<tarn_auth_supp_vlan> vlans_;
};

class ProcAuthTest : public ProcTest {
protected:
    void TearDown() override {
        am = {};
        port()->auth_fwd_rules = nullptr;
        port()->auth_fwd_count = 0;
    }
    void rules(std::vector<tarn_auth_fwd_rule> rules) {
        rules_ = std::move(rules);
        port()->auth_fwd_rules = rules_.data();
        port()->auth_fwd_count = static_cast<i32>(rules_.size());
    }

private:
    std::vector<tarn_auth_fwd_rule> rules_;
};

TEST_F(ProcAuthTest, the_web_listener_is_printed) {
    u16 http[] = {80, 8080}, https[] = {443};
    am.listen_ip = 0xC0A80102;
    am.listen_port = 65535;
    am.listen_port2 = 8443;
    am.with_dhcpd = 1;
    am.http_ports = http;
    am.http_port_count = 2;
    am.https_ports = https;
    am.https_port_count = 1;
    EXPECT_EQ(show("authglobal"), "listening-socket=192.168.1.2:65535/8443 with dhcpd\n"
                                  "hook-http-ports=80,8080,\nhook-https-ports=443,\n");
    am.http_ports = nullptr; // there was no memory
    EXPECT_THAT(show("authglobal"), ::testing::HasSubstr("\nhook-http-ports=\n"));
}

TEST_F(ProcAuthTest, a_write_of_the_web_listener_changes_nothing) {
    std::string before = show("authglobal");
    EXPECT_EQ(store("authglobal", "1.2.3.4:1/2,3,4,5"), 17);
    EXPECT_EQ(store("authglobal", "1.2.3.4:1/2,3,4,5,6\n"), 20);
    EXPECT_EQ(store("authglobal", "1.2.3.4:1/2"), -EFAULT);
    EXPECT_EQ(store("authglobal", "1.2.3.4:1/2,3"), -EFAULT);
    EXPECT_EQ(store("authglobal", "1.2.3.4:1/2,3,4"), -EFAULT);
    EXPECT_EQ(store("authglobal", std::string(250, 'x') + ",,,,,"), 253); // three are in time
    EXPECT_EQ(store("authglobal", std::string(251, 'x') + ",,,,,"), -EFAULT);
    EXPECT_EQ(userlevel::proc_write("tarn/authglobal", nullptr, 4), -EFAULT);
    EXPECT_EQ(show("authglobal"), before);
}

TEST_F(ProcAuthTest, state_and_method_of_a_port_are_named) {
    const char *states[] = {"Block-InOut",  "Block-In", "Unblock",
                            "Uncontrolled", "Auto",     "Unknown"};
    for (u32 state = 0; state < 6; state++) {
        port()->auth_state = state;
        EXPECT_EQ(show("if5011/auth"),
                  std::string("state=") + states[state] + "\nmethod=None\nguest-vlan=0\n");
    }
    port()->auth_state = 0xFFFFFFFF;
    EXPECT_THAT(show("if5011/auth"), ::testing::StartsWith("state=Unknown\n"));
    port()->auth_state = 4;
    const char *methods[] = {"None",       "MAC ",           "Dot1x ",
                             "MAC Dot1x ", "Web ",           "MAC Web ",
                             "Dot1x Web ", "MAC Dot1x Web ", "" /*8: a bit that nobody knows*/};
    for (u32 method = 0; method < 9; method++) {
        port()->auth_method = method;
        port()->auth_guest_vlan = 65535;
        EXPECT_EQ(show("if5011/auth"),
                  std::string("state=Auto\nmethod=") + methods[method] + "\nguest-vlan=65535\n");
    }
}

TEST_F(ProcAuthTest, rules_are_printed_by_family_and_protocol) {
    rules({{.family = 2, .prefix_len = 24, .addr = {10, 1, 2, 0}, .port = 80, .protocol = 6},
           {.family = 2,
            .prefix_len = 32,
            .addr = {255, 255, 255, 255},
            .port = 65535,
            .protocol = 17},
           {.family = 2, .prefix_len = 0, .protocol = 1},
           {.family = 2, .prefix_len = 255},
           {.family = 10, .prefix_len = 64, .addr = {0x20, 1}, .port = 443, .protocol = 6},
           {.family = 10, .prefix_len = 64}});
    std::string text = "10.1.2.0/24:80/tcp\n255.255.255.255/32:65535/udp\n0.0.0.0/0\n"
                       "0.0.0.0/255\n:443/tcp\n\n";
    EXPECT_EQ(show("if5011/authfwd"), text);
    port()->auth_arp_forward = 1;
    EXPECT_EQ(show("if5011/authfwd"), "0.0.0.0:arp\n" + text);
    port()->auth_arp_forward = 0;
}

TEST_F(ProcAuthTest, nine_rules_are_printed_and_no_more) {
    rules(std::vector<tarn_auth_fwd_rule>(10, {.family = 2}));
    std::string text = show("if5011/authfwd");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 9);
    port()->auth_fwd_count = -1;
    EXPECT_EQ(show("if5011/authfwd"), "");
    port()->auth_fwd_count = 10;
    port()->auth_fwd_rules = nullptr; // there was no memory
    EXPECT_EQ(show("if5011/authfwd"), "");
}

TEST_F(ProcAuthTest, supplicants_are_printed_in_the_order_of_their_buckets) {
    EXPECT_EQ(show("if5011/authsupp"), "");
    Supplicants table(port());
    EXPECT_EQ(show("if5011/authsupp"), "");
    table.add(0xFF, false, nullptr, {});
    table.add(0x00, true, vlan1(), {10, 4094, 1});
    table.add(0x00, true, port1(), {5});
    EXPECT_EQ(show("if5011/authsupp"), "02:ab:00:00:01:00 authed initial_l3=vlan1 vlan=10,4094,1\n"
                                       "02:ab:00:00:01:00 authed initial_l3=port1 vlan=5\n"
                                       "02:ab:00:00:01:ff unauthed initial_l3= vlan=\n");
}

TEST_F(ProcAuthTest, of_ten_supplicants_nine_are_printed) {
    Supplicants table(port());
    for (u8 i = 0; i < 5; i++) {
        table.add(7, true, vlan1(), {1});
        table.add(static_cast<u8>(20 + i), true, vlan1(), {1});
    }
    std::string text = show("if5011/authsupp");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 9);
    EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr(":18 authed"))); // 24, the last
}

// State and method go to the authenticator, the guest VLAN into the record.
TEST_F(ProcAuthTest, a_write_of_a_port_asks_for_what_it_says) {
    nl_callees() = {.traced = true, .results = {0}};
    EXPECT_EQ(store("if5011/auth", "4,6,20"), 6);
    EXPECT_THAT(nl_callees().calls, ::testing::ElementsAre("tarn_auth_set_port_state @5011 4 6"));
    nl_callees() = {};
    EXPECT_THAT(show("if5011/auth"), ::testing::HasSubstr("guest-vlan=20\n"));
    port()->auth_guest_vlan = 0;
}

// What the authenticator is asked by a write: to add, MAC, state, VID.
TEST_F(ProcAuthTest, a_write_of_a_supplicant_asks_for_what_it_says) {
    auto asked = [](const std::string &text) {
        nl_callees() = {.traced = true, .results = {0}};
        EXPECT_EQ(store("if5011/authsupp", text), static_cast<long>(text.size())) << text;
        auto calls = nl_callees().calls;
        nl_callees() = {};
        return calls.size() == 1 ? calls[0] : std::to_string(calls.size()) + " calls";
    };
    EXPECT_EQ(asked("1,00:1a:22:33:44:f5,1,20"),
              "tarn_auth_supp_set_state @5011 001a223344f5 20 1");
    EXPECT_EQ(asked("1, 1: 2:333:4:5:6,0,4094"),
              "tarn_auth_supp_set_state @5011 010233040506 4094 0");
    EXPECT_EQ(asked("1,a:b,2,65537"), "tarn_auth_supp_set_state @5011 0a0b00000000 1 1");
    EXPECT_EQ(asked("1,a-b:c:d:e:f,1,1"), "tarn_auth_supp_set_state @5011 0a0000000000 1 1");
    EXPECT_EQ(asked("0,00:11:22:33:44:55,1,20"), "tarn_auth_remove_supp @5011 001122334455");
    EXPECT_EQ(asked("2,00:11:22:33:44:55:66,1,20"), "tarn_auth_remove_supp @5011 001122334455");
}

} // namespace
