#include "tarnctl/cases.h"

namespace {

using fake::Bytes;
using fake::Wire;

constexpr const char *MAC = "020000000101";

Bytes bitmap(std::initializer_list<unsigned> vids) {
    Bytes bytes(512);
    for (unsigned vid : vids) {
        std::uint32_t word;
        std::memcpy(&word, &bytes[vid / 32 * 4], 4);
        word |= 1u << (vid % 32);
        std::memcpy(&bytes[vid / 32 * 4], &word, 4);
    }
    return bytes;
}

// Family 2, prefix 24, 192.0.2.0, port 80, protocol 6.
Bytes rule(std::uint8_t prefix, std::uint8_t last, std::uint16_t port, std::uint16_t protocol) {
    Bytes bytes(32);
    const std::uint32_t family = 2;
    std::memcpy(&bytes[0], &family, 4);
    bytes[4] = prefix;
    bytes[12] = 192;
    bytes[14] = 2;
    bytes[15] = last;
    std::memcpy(&bytes[28], &port, 2);
    std::memcpy(&bytes[30], &protocol, 2);
    return bytes;
}

Bytes joined(std::initializer_list<Bytes> all) {
    Bytes bytes;
    for (const Bytes &one : all)
        bytes.insert(bytes.end(), one.begin(), one.end());
    return bytes;
}

Bytes words(std::initializer_list<std::uint32_t> all) {
    Bytes bytes;
    for (std::uint32_t word : all)
        for (int byte = 0; byte < 4; byte++)
            bytes.push_back(static_cast<std::uint8_t>(word >> (8 * byte)));
    return bytes;
}

Wire stp(std::uint32_t instance, std::uint8_t state) {
    return Wire(16).u32(1, 5001).u32(32, instance).u8(33, state);
}

std::vector<Wire> all_instances() {
    std::vector<Wire> all;
    for (std::uint32_t instance = 0; instance < 64; instance++)
        all.push_back(stp(instance, 3));
    return all;
}

} // namespace

const std::vector<Case> &cases() {
    static const std::vector<Case> all{
        // Interfaces
        {"link add port port1 ifindex 5001 mac 02:00:00:00:01:01 up running",
         {Wire(0).u32(1, 5001).text(55, "port1").u8(56, 3).u32(45, 0x41).hex(9, MAC).u8(57, 0)}},
        {"link add port port1 routed member 2 mac 02:00:00:00:01:01 ifindex 0x1389",
         {Wire(0)
              .u32(1, 5001)
              .text(55, "port1")
              .u8(56, 3)
              .u32(45, 0)
              .hex(9, MAC)
              .u8(57, 1)
              .u32(58, 2)}},
        {"link add lag lag1 ifindex 4501 mac 02:00:00:00:01:01",
         {Wire(0).u32(1, 4501).text(55, "lag1").u8(56, 3).u32(45, 0).hex(9, MAC).u8(57, 3)}},
        {"link add lag lag1 ifindex 4501 mac 02:00:00:00:01:01 mode dynamic",
         {Wire(0).u32(1, 4501).text(55, "lag1").u8(56, 3).u32(45, 0).hex(9, MAC).u8(57, 2)}},
        {"link add ethernet eth0 ifindex 2 mac 02:00:00:00:01:01 up broadcast multicast",
         {Wire(0).u32(1, 2).text(55, "eth0").u8(56, 2).u32(45, 0x1003).hex(9, MAC)}},
        {"link set 5001 up running", {Wire(1).u32(1, 5001).u32(45, 0x41)}},
        {"link set 5001 down speed 1000 duplex full",
         {Wire(1).u32(1, 5001).u32(45, 0).u32(46, 1000).u8(47, 1)}},
        {"link del 5001", {Wire(2).u32(1, 5001)}},
        {"link mac vlan10 02:00:00:00:01:01", {Wire(3).u32(1, 310).hex(9, MAC)}},
        {"link routed 5001 100", {Wire(81).u32(1, 5001).u16(4, 100)}},
        {"link routed 5001 0", {Wire(81).u32(1, 5001).u16(4, 0)}},
        {"fib bind vlan10 7", {Wire(4).u32(1, 310).u32(5, 7)}},
        {"fib unbind vlan10 7", {Wire(5).u32(1, 310).u32(5, 7)}},
        // VLANs
        {"vlan add 10-20 mac 02:00:00:00:01:01",
         {Wire(7).u16(48, 10).u16(49, 21).u32(50, 0).hex(9, MAC)}},
        {"vlan add 10,30-31 mirror local always-up",
         {Wire(7).u16(48, 10).u16(49, 11).u32(50, 7).hex(9, "020000000001"),
          Wire(7).u16(48, 30).u16(49, 32).u32(50, 7).hex(9, "020000000001")}},
        {"vlan add 1-4094", {Wire(7).u16(48, 1).u16(49, 4095).u32(50, 0).hex(9, "020000000001")}},
        {"vlan del 10,12", {Wire(6).u32(1, 310), Wire(6).u32(1, 312)}},
        {"vlan options 10 always-up no-member-check", {Wire(8).u32(1, 310).u32(50, 0x24)}},
        {"vlan options 10", {Wire(8).u32(1, 310).u32(50, 0)}},
        {"vlan member add 5001 10", {Wire(19).u32(1, 5001).u8(7, 0).u16(4, 10)}},
        {"vlan member add 5001 10,31,32,4094 tagged",
         {Wire(20).u32(1, 5001).u8(7, 1).raw(8, bitmap({10, 31, 32, 4094}))}},
        {"vlan member del 5001 10", {Wire(21).u32(1, 5001).u16(4, 10)}},
        {"vlan member del 5001 10-12", {Wire(22).u32(1, 5001).raw(8, bitmap({10, 11, 12}))}},
        {"vlan pvid 5001 10", {Wire(18).u32(1, 5001).u16(4, 10)}},
        {"vlan filter 5001 on", {Wire(17).u32(1, 5001).u8(6, 1)}},
        {"vlan port-state 5001 10 on", {Wire(59).u32(1, 5001).u16(4, 10).u8(6, 1)}},
        {"vlan port-state 5001 10,11 off",
         {Wire(60).u32(1, 5001).raw(8, bitmap({10, 11})).u8(6, 0)}},
        {"vlan classifier add 5001 10 192.0.2.0/24",
         {Wire(23).u32(1, 5001).u16(4, 10).hex(11, "c0000200").u8(12, 24)}},
        {"vlan classifier del 5001 10 192.0.2.0/24",
         {Wire(24).u32(1, 5001).u16(4, 10).hex(11, "c0000200").u8(12, 24)}},
        {"vlan translate add 5001 10 20", {Wire(25).u32(1, 5001).u16(13, 10).u16(14, 20)}},
        {"vlan translate del 5001 10 20", {Wire(26).u32(1, 5001).u16(13, 10).u16(14, 20)}},
        {"vlan translate miss 5001 2", {Wire(27).u32(1, 5001).u8(15, 2)}},
        {"vlan stack add 10 100", {Wire(28).u32(1, 0).u8(15, 0).u16(16, 10).u16(17, 100)}},
        {"vlan stack del 10 100", {Wire(29).u32(1, 0).u8(15, 0).u16(16, 10).u16(17, 100)}},
        {"vxlan add 10 vni 5000 remote 192.0.2.2 local 192.0.2.1",
         {Wire(9).u8(6, 1).u16(4, 10).u32(53, 5000).hex(52, "c0000202").hex(51, "c0000201")}},
        {"vxlan del 10 local 192.0.2.1 remote 192.0.2.2 vni 5000",
         {Wire(9).u8(6, 0).u16(4, 10).u32(53, 5000).hex(52, "c0000202").hex(51, "c0000201")}},
        {"pvlan type 10 primary", {Wire(44).u16(4, 10).u8(18, 3)}},
        {"pvlan associate 10 11", {Wire(45).u16(19, 10).u16(20, 11)}},
        {"pvlan dissociate 10 11", {Wire(46).u16(19, 10).u16(20, 11)}},
        {"pvlan port add 5001 10 11", {Wire(47).u32(1, 5001).u16(19, 10).u16(20, 11)}},
        {"pvlan port del 5001 10 11", {Wire(48).u32(1, 5001).u16(19, 10).u16(20, 11)}},
        {"pvlan mode 5001 promiscuous", {Wire(49).u32(1, 5001).u8(21, 2)}},
        {"pvlan mode 5001 3", {Wire(49).u32(1, 5001).u8(21, 3)}},
        {"pvlan forwarding 10 upstream", {Wire(50).u16(4, 10).u8(22, 0)}},
        {"pvlan upstream add:10:5001,del:11:vlan12",
         {Wire(51).raw(23, words({1, 10, 5001, 0, 11, 312}))}},
        // Aggregators, spanning tree, mirrors
        {"lag attach 5001 4501", {Wire(42).u32(1, 5001).u32(2, 4501)}},
        {"lag detach 5001 4501", {Wire(43).u32(1, 5001).u32(2, 4501)}},
        {"lag del 4501", {Wire(41).u32(2, 4501)}},
        {"stp vlan add 10,11 instance 3",
         {Wire(14).u16(4, 10).u32(32, 3), Wire(14).u16(4, 11).u32(32, 3)}},
        {"stp vlan del 10", {Wire(15).u16(4, 10)}},
        {"stp state 5001 blocking", {stp(0, 4)}},
        {"stp state 5001 forwarding instance all", all_instances()},
        {"stp state 5001 learning instance 1,5-6", {stp(1, 2), stp(5, 2), stp(6, 2)}},
        {"mirror add source 5001 target 5002",
         {Wire(61).u32(29, 5002).u32(30, 5001).u16(4, 0).u8(31, 2)}},
        {"mirror del source 5001 target 5002 vlan 10 direction both",
         {Wire(62).u32(29, 5002).u32(30, 5001).u16(4, 10).u8(31, 3)}},
        // Neighbours and multicast
        {"neigh flush port 5001", {Wire(10).u8(10, 0).u32(5, 0xFFFFFFFF).u32(3, 5001).u32(1, 0)}},
        {"neigh flush port 5001 vlan 10 family ipv6 dev vlan10",
         {Wire(10).u8(10, 10).u32(5, 10).u32(3, 5001).u32(1, 310)}},
        {"neigh flush mac 02:00:00:00:01:01 vlan 10", {Wire(13).u32(1, 0).u32(5, 10).hex(9, MAC)}},
        {"neigh moved vlan10 02:00:00:00:01:01", {Wire(11).u32(1, 310).hex(9, MAC)}},
        {"arp mac-disparity vlan10 on", {Wire(12).u32(1, 310).u8(6, 1)}},
        {"igmp group add 5", {Wire(30).u32(5, 0).u32(11, 5).u8(43, 0).u8(44, 0)}},
        {"igmp group del 5 vrf 2", {Wire(30).u32(5, 2).u32(11, 5).u8(43, 1).u8(44, 0)}},
        {"igmp router-mode 1", {Wire(30).u32(5, 0).u32(11, 0).u8(43, 2).u8(44, 1)}},
        {"igmp vrf add 3", {Wire(31).u32(5, 3).u8(6, 1)}},
        {"igmp vrf del 3", {Wire(31).u32(5, 3).u8(6, 0)}},
        {"multicast stop-unregistered on", {Wire(32).u8(6, 1)}},
        {"multicast rate-limit 50", {Wire(33).u32(42, 50)}},
        {"multicast group add 10 224.0.1.129", {Wire(36).u32(5, 0).u16(4, 10).hex(11, "e0000181")}},
        {"multicast group del 10 224.0.1.129 fib 1",
         {Wire(37).u32(5, 1).u16(4, 10).hex(11, "e0000181")}},
        {"multicast group flush", {Wire(38)}},
        {"mroute ipv4 add vlan10", {Wire(34).u32(1, 310)}},
        {"mroute ipv4 del vlan10", {Wire(35).u32(1, 310)}},
        {"mroute ipv4 software off", {Wire(39).u8(6, 0)}},
        {"mroute ipv6 add vlan10", {Wire(79).u32(1, 310)}},
        {"mroute ipv6 del vlan10", {Wire(80).u32(1, 310)}},
        {"mroute ipv6 software on", {Wire(40).u8(6, 1)}},
        // Security
        {"auth port 5001 auto method mac,web", {Wire(52).u32(1, 5001).u8(34, 4).u8(35, 5)}},
        {"auth port 5001 uncontrolled", {Wire(52).u32(1, 5001).u8(34, 3).u8(35, 0)}},
        {"auth web 192.0.2.1 port 8080 http 80,8000",
         {Wire(53)
              .hex(11, "c0000201")
              .u16(36, 8080)
              .u16(37, 0)
              .u8(6, 0)
              .hex(38, "5000401f")
              .raw(39, {})}},
        {"auth forward 5001 guest-vlan 20 arp on guest-rules 192.0.2.53:53/udp rules "
         "192.0.2.0/24:80/tcp,192.0.2.1",
         {Wire(54)
              .u32(1, 5001)
              .u16(4, 20)
              .u8(6, 1)
              .raw(40, rule(32, 53, 53, 17))
              .raw(41, joined({rule(24, 0, 80, 6), rule(32, 1, 0, 0)}))}},
        {"auth supplicant set 5001 02:00:00:00:01:01 vlan 10 admitted on",
         {Wire(55).u32(1, 5001).u16(4, 10).u8(6, 1).hex(9, MAC)}},
        {"auth supplicant del 5001 02:00:00:00:01:01", {Wire(56).u32(1, 5001).hex(9, MAC)}},
        {"auth supplicant ageout 5001 02:00:00:00:01:01 incomplete off",
         {Wire(57).u32(1, 5001).u8(6, 0).hex(9, MAC)}},
        {"dhcp lease add 5001 10 192.0.2.9 02:00:00:00:01:01",
         {Wire(63).u32(1, 5001).u16(4, 10).u8(24, 0).hex(11, "c0000209").hex(9, MAC)}},
        {"dhcp lease del 192.0.2.9",
         {Wire(63).u32(1, 0).u16(4, 0).u8(24, 1).hex(11, "c0000209").hex(9, "000000000000")}},
        {"dhcp lease flush",
         {Wire(63).u32(1, 0).u16(4, 0).u8(24, 2).hex(11, "00000000").hex(9, "000000000000")}},
        {"dhcp snooping vlan 10 on", {Wire(64).u16(4, 10).u8(25, 0).u8(6, 1).u8(26, 0)}},
        {"dhcp snooping global off", {Wire(64).u16(4, 0).u8(25, 0).u8(6, 0).u8(26, 1)}},
        {"dhcp trust 5001 on", {Wire(65).u32(1, 5001).u8(6, 1)}},
        {"dhcp flood 10 on", {Wire(67).u16(4, 10).u8(6, 1)}},
        {"arp security vlan 10 on", {Wire(64).u16(4, 10).u8(25, 1).u8(6, 1).u8(26, 0)}},
        {"arp security global on", {Wire(64).u16(4, 0).u8(25, 1).u8(6, 1).u8(26, 0)}},
        {"arp security debug off", {Wire(64).u16(4, 0).u8(25, 2).u8(6, 0).u8(26, 0)}},
        {"arp security action 5001 bit0,bit3", {Wire(66).u32(1, 5001).u8(27, 9)}},
        // The rest
        {"ryke control-vlan 100 on", {Wire(58).u16(4, 100).u8(6, 1)}},
        {"udld enable off", {Wire(68).u8(6, 0)}},
        {"udld filter 5001 on", {Wire(69).u32(1, 5001).u8(6, 1)}},
        {"vornappsd add 192.0.2.1", {Wire(70).hex(11, "c0000201")}},
        {"vornappsd del 192.0.2.1", {Wire(71).hex(11, "c0000201")}},
        {"fdb set", {Wire(73)}},
        {"stack vlan create 4090 mac 02:00:00:00:01:01", {Wire(76).u16(4, 4090).hex(9, MAC)}},
        {"stack vlan destroy", {Wire(77)}},
        {"stack vlan state on", {Wire(78).u8(6, 1)}},
    };
    return all;
}
