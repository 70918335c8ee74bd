// Every row of the trap table: the frames it takes, what the CPU is told, and whether they go on.
#include "chip_test.h"

#include "chip_trap.h"
#include "port.h"

#include "kernel/skb.h"

#include <cstring>
#include <fstream>
#include <sstream>

using Trapping = ChipTest;

namespace {

const std::string OWN = "02:00:00:00:00:aa", A = "02:00:00:00:00:0a", ALL = "ff:ff:ff:ff:ff:ff";
constexpr bool ONWARD = true, STAYS = false;

Frame to(const std::string &address, u16 type = 0x9000) {
    return Frame().from(A).to(address).type(type).padded();
}

Frame udp(const std::string &address, int source, int destination) {
    return Frame().from(A).to(address).ipv4({}).bytes(
        {source >> 8, source & 0xFF, destination >> 8, destination & 0xFF, 0, 8, 0, 0});
}

Frame udp6(const std::string &address, int source, int destination) {
    return Frame().from(A).to(address).ipv6({}).bytes(
        {source >> 8, source & 0xFF, destination >> 8, destination & 0xFF, 0, 8, 0, 0});
}

Frame icmp6(const std::string &address, int type) {
    return Frame().from(A).to(address).ipv6({.next = 58}).bytes({type, 0, 0, 0});
}

Frame listener(int type) {
    return Frame()
        .from(A)
        .to("33:33:00:00:00:16")
        .ipv6({.next = 0})
        .bytes({58, 0, 5, 2, 0, 0, 1, 0})
        .bytes({type, 0, 0, 0});
}

struct Row {
    const char *name;
    Frame frame;
    u32 code, flags, queue;
    bool goes_on;
};

const std::vector<Row> rows{
    {"bpdu", to("01:80:c2:00:00:00", 0x0026), 1, 0, 7, STAYS},
    {"lacp", to("01:80:c2:00:00:02", 0x8809), 1, 0, 7, STAYS},
    {"eapol", to("01:80:c2:00:00:03", 0x888E), 1, 0, 7, STAYS},
    {"eapol", to(OWN, 0x888E), 1, 0, 7, STAYS},
    {"lldp", to("01:80:c2:00:00:0e", 0x88CC), 1, 0, 7, STAYS},
    {"lldp", to("01:80:c2:00:00:00", 0x88CC), 1, 0, 7, STAYS},
    {"lldp", to("01:80:c2:00:00:0e", 100).bytes({0xAA, 0xAA, 3, 0, 0, 0, 0x88, 0xCC}).padded(114),
     1, 0, 7, STAYS},
    {"link-local", to("01:80:c2:00:00:02", 0x8808), 1, 0, 7, STAYS},
    {"link-local", to("01:80:c2:00:00:0f"), 1, 0, 7, STAYS},
    {"garp", to("01:80:c2:00:00:20"), 1, 0, 7, STAYS},
    {"garp", to("01:80:c2:00:00:2f"), 1, 0, 7, STAYS},
    {"udld", to("01:00:0c:cc:cc:cc"), 1, 0, 7, STAYS},
    {"ldf", to("00:00:f4:27:71:01"), 1, 0, 7, STAYS},
    {"ryke", to("00:e0:2b:00:00:04"), 3, 0, 7, STAYS},
    {"befd", to("00:0c:25:0a:8c:01"), 1, 0, 7, STAYS},
    {"mrp", to("01:15:4e:00:00:01", 0x88E3), 1, 0, 7, STAYS},
    {"raps", to("01:19:a7:00:00:01", 0x8902), 1, 8, 7, STAYS},
    {"isis", to("01:80:c2:00:00:14"), 1, 0, 7, STAYS},
    {"isis", to("01:80:c2:00:00:15"), 1, 0, 7, STAYS},
    {"isis", to("09:00:2b:00:00:04"), 1, 0, 7, STAYS},
    {"isis", to("09:00:2b:00:00:05"), 1, 0, 7, STAYS},
    {"cfm", to("01:80:c2:00:00:30", 0x8902), 1, 8, 7, ONWARD},
    {"cfm", to(OWN, 0x8902), 1, 8, 7, STAYS},
    {"profinet", to("01:0e:cf:00:00:00", 0x8892), 1, 0, 7, ONWARD},
    {"igmp", Frame().from(A).to("01:00:5e:00:00:16").ipv4({.protocol = 2}), 1, 0, 7, STAYS},
    {"mld", listener(130), 1, 0, 7, STAYS},
    {"mld", listener(131), 1, 0, 7, STAYS},
    {"mld", listener(132), 1, 0, 7, STAYS},
    {"mld", listener(143), 1, 0, 7, STAYS},
    {"dhcp", udp(ALL, 68, 67), 1, 0, 6, ONWARD},
    {"dhcp", udp("02:00:00:00:00:0b", 67, 68), 1, 0, 6, ONWARD},
    {"dhcpv6", udp6("33:33:00:01:00:02", 546, 547), 1, 0, 6, ONWARD},
    {"dhcpv6", udp6("02:00:00:00:00:0b", 547, 546), 1, 0, 6, ONWARD},
    {"own-arp", to(OWN, 0x0806), 1, 0, 5, STAYS},
    {"arp", to(ALL, 0x0806), 1, 0, 5, ONWARD},
    {"nd", icmp6("33:33:ff:00:00:01", 135), 1, 0, 5, ONWARD},
    {"own-ipv4", Frame().from(A).to(OWN).ipv4({.protocol = 1}), 1, 0, 4, STAYS},
    {"own-ipv4", Frame().from(A).to(OWN).ipv4({.protocol = 6}), 1, 0, 4, STAYS},
    {"own-ipv6", icmp6(OWN, 128), 1, 0, 4, STAYS},
    {"own-other", to(OWN), 1, 0, 4, STAYS},
    {"multicast-ipv4", Frame().from(A).to("01:00:5e:01:02:03").ipv4({}), 5, 0, 2, ONWARD},
    {"multicast-ipv6", Frame().from(A).to("33:33:00:00:12:34").ipv6({}), 6, 0, 2, ONWARD},
    {"multicast-ipv6", listener(129), 6, 0, 2, ONWARD},
    {"multicast", to("03:00:00:00:00:01"), 1, 0, 2, ONWARD},
    {"multicast", to("01:80:c2:00:00:10"), 1, 0, 2, ONWARD},
    {"broadcast", to(ALL), 1, 0, 1, ONWARD},
    {"broadcast", udp(ALL, 1000, 1001), 1, 0, 1, ONWARD},
};

} // namespace

TEST_F(Trapping, each_row_takes_its_frames_and_tells_the_cpu_of_them) {
    tell("mac " + OWN + " 1");
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        Bytes frame = row.frame;
        receive(101, frame);
        ASSERT_EQ(home.trapped.size(), 1u);
        const Trapped seen = home.trapped[0];
        EXPECT_EQ(traps(), row.name);
        EXPECT_EQ(ports_that_sent(), row.goes_on ? "102 103 104" : "");
        EXPECT_EQ(seen.bytes, frame);
        EXPECT_EQ(seen.ifindex, 101u);
        EXPECT_EQ(seen.vid, 1u);
        EXPECT_EQ(seen.meta.code, row.code);
        EXPECT_EQ(seen.meta.flags, row.flags);
        EXPECT_EQ(seen.meta.queue, row.queue);
        EXPECT_EQ(seen.meta.debug, 1);
        EXPECT_EQ(seen.meta.replicated, 0);
        EXPECT_EQ(seen.meta.extra, 0u);
        EXPECT_EQ(seen.meta.flood_except[0], ~0u);
        EXPECT_EQ(seen.meta.flood_except[1], 0u);
        EXPECT_EQ(seen.meta.local, 0);
    }
}

TEST_F(Trapping, each_row_takes_its_frames_behind_a_tag_which_stays) {
    tell("mac " + OWN + " 9");
    for (u32 ifindex = 101; ifindex <= 104; ifindex++)
        tell("vlan " + std::to_string(ifindex) + " 9 tagged");
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        Bytes frame = Frame(row.frame).tag(0xE009);
        receive(101, frame);
        ASSERT_EQ(home.trapped.size(), 1u);
        EXPECT_EQ(home.trapped[0].bytes, frame);
        EXPECT_EQ(home.trapped[0].vid, 9u);
        EXPECT_EQ(traps(), row.name);
        EXPECT_EQ(ports_that_sent(), row.goes_on ? "102 103 104" : "");
    }
}

TEST_F(Trapping, every_row_has_a_cpu_code_of_its_own_and_a_test) {
    std::set<u32> codes;
    std::set<std::string> tested{"filter",      "auth",         "own-icmp", "sample",
                                 "new-address", "moved-address"}; // below, and chip_tx_test.cc
    for (const Row &row : rows)
        tested.insert(row.name);
    for (u32 row = 0; row < trap_count(); row++) {
        EXPECT_TRUE(codes.insert(trap_row(row).cpu_code).second);
        EXPECT_TRUE(tested.contains(trap_row(row).name)) << trap_row(row).name;
    }
}

TEST_F(Trapping, frames_of_the_link_are_taken_whatever_the_vlan) {
    tell("pvid 101 0");
    tell("novlan 101 1");
    receive(101, to("01:80:c2:00:00:00"));
    ASSERT_EQ(home.trapped.size(), 1u);
    EXPECT_EQ(home.trapped[0].vid, 0u);
    receive(101, Frame(to("01:80:c2:00:00:02", 0x8809)).tag(77));
    EXPECT_EQ(home.trapped.back().vid, 77u);
    EXPECT_EQ(traps(), "bpdu lacp");
    receive(101, to(ALL, 0x0806));
    EXPECT_EQ(traps(), "");
    EXPECT_EQ(tell("show fdb"), "");
}

TEST_F(Trapping, a_port_that_is_down_traps_nothing) {
    tell("link 101 down");
    receive(101, to("01:80:c2:00:00:00"));
    EXPECT_EQ(traps(), "");
}

TEST_F(Trapping, an_address_of_the_switch_is_its_own_in_its_vlan_only) {
    tell("mac " + OWN + " 2");
    receive(101, to(OWN));
    EXPECT_EQ(traps(), "");
    EXPECT_EQ(ports_that_sent(), "102 103 104");
}

TEST_F(Trapping, nobody_takes_the_address_of_the_switch_by_sending_from_it) {
    tell("mac " + OWN + " 1");
    receive(103, Frame().from(OWN).to(A).padded());
    ports_that_sent();
    receive(101, to(OWN));
    EXPECT_EQ(traps(), "own-other");
    EXPECT_EQ(ports_that_sent(), "");
}

TEST_F(Trapping, unicast_between_hosts_is_not_trapped) {
    receive(101, udp("02:00:00:00:00:0b", 1000, 1001));
    receive(101, to("02:00:00:00:00:0b", 0x0806));
    EXPECT_EQ(traps(), "");
}

TEST_F(Trapping, ports_are_not_read_behind_a_fragment) {
    receive(101, Frame()
                     .from(A)
                     .to("02:00:00:00:00:0b")
                     .ipv4({.fragment = 100})
                     .bytes({0, 68, 0, 67, 0, 8, 0, 0}));
    EXPECT_EQ(traps(), "");
}

TEST_F(Trapping, headers_cut_short_read_as_zeros) {
    for (const Row &row : rows) {
        Bytes whole = row.frame;
        for (std::size_t length = 14; length < whole.size(); length++)
            receive(101, Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
    }
    EXPECT_EQ(counter(101, "drop-runt"), 0u);
    home.trapped.clear();
    home.sent.clear();
}

TEST_F(Trapping, a_trap_can_be_made_exclusive_or_a_copy_or_none) {
    tell("trap dhcp only");
    receive(101, udp(ALL, 68, 67));
    EXPECT_EQ(traps(), "dhcp");
    EXPECT_EQ(ports_that_sent(), "");
    tell("trap dhcp off");
    receive(101, udp(ALL, 68, 67));
    EXPECT_EQ(traps(), "broadcast"); // the next row that matches
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    tell("trap igmp copy");
    receive(101, Frame().from(A).to("01:00:5e:00:00:16").ipv4({.protocol = 2}));
    EXPECT_EQ(traps(), "igmp");
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    tell("trap dhcp on");
    receive(101, udp(ALL, 68, 67));
    EXPECT_EQ(traps(), "dhcp");
    EXPECT_EQ(hits("dhcp"), 2u);
}

TEST_F(Trapping, reserved_addresses_are_not_forwarded_even_when_nothing_traps_them) {
    tell("trap bpdu copy");
    receive(101, to("01:80:c2:00:00:00", 0x0026));
    EXPECT_EQ(traps(), "bpdu");
    tell("trap bpdu off");
    receive(101, to("01:80:c2:00:00:00", 0x0026));
    EXPECT_EQ(traps(), "link-local");
    tell("trap link-local off");
    tell("trap multicast off");
    receive(101, to("01:80:c2:00:00:00", 0x0026));
    EXPECT_EQ(traps(), "");
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(101, "drop-reserved"), 1u);
}

TEST_F(Trapping, frames_to_the_switch_are_not_forwarded_even_when_nothing_traps_them) {
    tell("mac " + OWN + " 1");
    tell("trap own-other off");
    receive(101, to(OWN));
    EXPECT_EQ(traps(), "");
    EXPECT_EQ(ports_that_sent(), "");
    EXPECT_EQ(counter(101, "drop-own"), 1u);
}

TEST_F(Trapping, own_icmp_has_a_class_of_its_own_when_switched_on) {
    tell("mac " + OWN + " 1");
    tell("trap own-icmp on");
    receive(101, Frame().from(A).to(OWN).ipv4({.protocol = 1}));
    EXPECT_EQ(home.trapped.at(0).meta.code, 2u);
    EXPECT_EQ(traps(), "own-icmp");
}

TEST_F(Trapping, the_filter_takes_ethernet_types) {
    const std::string all = "ff:ff:ff:ff:ff:ff";
    tell("filter 88b5 88b7");
    tell("mac " + OWN + " 1");
    receive(101, to(all, 0x88B5));
    EXPECT_EQ(traps(), "broadcast");
    ports_that_sent();
    tell("trap filter on");
    receive(101, to(all, 0x88B5));
    ASSERT_EQ(home.trapped.size(), 1u);
    EXPECT_EQ(home.trapped[0].meta.code, 10u);
    EXPECT_EQ(home.trapped[0].meta.flags, 8u);
    EXPECT_EQ(traps(), "filter");
    EXPECT_EQ(ports_that_sent(), "102 103 104");
    receive(101, to(OWN, 0x88B7));
    EXPECT_EQ(traps(), "filter");
    EXPECT_EQ(ports_that_sent(), "");
    // Neither other types nor frames that pass from host to host.
    receive(101, to(all, 0x88B6));
    EXPECT_EQ(traps(), "broadcast");
    ports_that_sent();
    receive(101, to("02:00:00:00:00:0b", 0x88B5));
    EXPECT_EQ(traps(), "");
}

TEST_F(Trapping, one_frame_in_so_many_is_sampled_beside_what_else_becomes_of_it) {
    tell("sflow 3");
    for (int i = 0; i < 6; i++)
        receive(101, to("02:00:00:00:00:0b"));
    EXPECT_EQ(home.trapped.at(0).meta.code, 8u);
    EXPECT_EQ(home.trapped.at(0).bytes, Bytes(to("02:00:00:00:00:0b")));
    EXPECT_EQ(traps(), "sample sample");
    EXPECT_EQ(sent(102).size(), 6u);
    tell("sflow 1");
    receive(101, to(ALL, 0x0806));
    EXPECT_EQ(traps(), "sample arp");
    tell("sflow 0");
    receive(101, to(ALL, 0x0806));
    EXPECT_EQ(traps(), "arp");
    home.sent.clear();
}

TEST_F(Trapping, new_and_moved_addresses_are_reported_when_wanted) {
    receive(101, to("02:00:00:00:00:0b"));
    EXPECT_EQ(traps(), "");
    tell("fdb flush");
    tell("trap new-address on");
    tell("trap moved-address on");
    receive(101, to("02:00:00:00:00:0b"));
    EXPECT_EQ(home.trapped.at(0).meta.flags, 1u);
    receive(101, to("02:00:00:00:00:0b")); // known now
    EXPECT_EQ(traps(), "new-address");
    receive(102, to("02:00:00:00:00:0b"));
    EXPECT_EQ(home.trapped.at(0).meta.flags, 2u);
    EXPECT_EQ(home.trapped.at(0).ifindex, 102u);
    EXPECT_EQ(traps(), "moved-address");
    receive(103, to(ALL, 0x0806)); // goes to the CPU anyway, and tells of the move
    EXPECT_EQ(home.trapped.at(0).meta.flags, 2u);
    EXPECT_EQ(traps(), "arp");
    home.sent.clear();
}

TEST_F(Trapping, a_frame_the_core_leaves_is_freed_and_counted) {
    home.core_result = 1;
    receive(101, to(ALL, 0x0806));
    home.core_result = 0;
    EXPECT_EQ(counter(101, "drop-cpu"), 1u);
    EXPECT_EQ(traps(), "arp");
    home.sent.clear();
}

TEST_F(Trapping, the_core_gets_bytes_of_its_own_and_a_clean_control_block) {
    bool shared = true, clean = false;
    home.at_delivery = [&](sk_buff *skb) {
        shared = skb_cloned(skb);
        clean = std::all_of(skb_cb(skb), skb_cb(skb) + SKB_CB_SIZE, [](u8 b) { return b == 0; });
    };
    sk_buff *skb = userlevel::frame_make(Bytes(to(ALL, 0x0806)));
    std::memset(skb_cb(skb), 0xFF, SKB_CB_SIZE);
    chip_receive(home.open.at("p1"), 0, skb);
    home.at_delivery = nullptr;
    EXPECT_FALSE(shared);
    EXPECT_TRUE(clean);
    home.trapped.clear();
    home.sent.clear();
}

TEST_F(Trapping, the_table_in_the_documentation_is_the_one_that_runs) {
    std::ifstream document(SOURCE_FOLDER "/docs/driver.md");
    std::string text((std::istreambuf_iterator<char>(document)), {});
    for (u32 at = 0; at < trap_count(); at++) {
        const chip_trap &row = trap_row(at);
        std::ostringstream line;
        line << "\n| `" << row.name << "` | " << row.cpu_code << " | " << row.code << " | "
             << row.flags << " | " << row.queue << " | "
             << (row.mode == CHIP_TRAP_COPY ? "copy" : "only") << " | "
             << (row.starts_on ? "on" : "off") << (row.of_the_link ? ", link" : "") << " | ";
        EXPECT_NE(text.find(line.str()), std::string::npos) << line.str();
    }
}
