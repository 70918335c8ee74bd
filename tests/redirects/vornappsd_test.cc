// "vornappsd": Web traffic of listed hosts.
#include "redirects/redirects_test.h"

#include "redirects/redirects.h"

using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr u32 HOST = 0x010200C0; // 192.0.2.1, as in a packet
constexpr const char *OWN = "02:00:00:00:00:01";
constexpr const char *ELSEWHERE = "02:00:00:00:00:55";
constexpr u8 TCP = 6;

class Vornappsd : public Redirects {
protected:
    Vornappsd() {
        configure([] { tarn_vornappsd_add_ip_address(&HOST); });
    }
    ~Vornappsd() override {
        tarn_vornappsd_remove_ip_address(&HOST);
        remember(); // its node waits for the next
    }

    static Bytes web(u16 port, const char *to = ELSEWHERE, u8 ihl = 5, u32 tags = 0) {
        Frame frame;
        frame.to(to);
        for (u32 i = 0; i < tags; i++)
            frame.tag(1);
        frame.ipv4({.protocol = TCP, .destination = {198, 51, 100, 7}});
        frame.bytes(Bytes((ihl - 5) * 4u));
        frame.bytes({0x30, 0x39, port >> 8, port & 0xFF}).bytes(Bytes(16));
        Bytes bytes = frame;
        bytes[14 + 4 * tags] = static_cast<u8>(0x40 | ihl);
        return bytes;
    }
    // What the IP stack got: the destination address and the mark.
    struct Taken {
        Bytes to;
        u32 mark, reason;
        bool operator==(const Taken &) const = default;
    };
    std::optional<Taken> taken(const Bytes &bytes) {
        const packet_redirect before = redirect("vornappsd");
        sk_buff *skb = userlevel::frame_make(bytes);
        enable_redirect_by_name("pbrMark", 0);
        calls().kernel.clear();
        u32 mark = 0;
        redirect("vornappsd").pre_post_modify = [](sk_buff *frame, void **arg) {
            real(frame, arg);
            if (frame)
                last_mark = skb_mark(frame);
        };
        receive_skb(skb, {.mark = 0x100});
        mark = last_mark;
        redirect("vornappsd").pre_post_modify = real;
        if (redirect("vornappsd").stops == before.stops)
            return std::nullopt;
        EXPECT_THAT(calls().kernel, SizeIs(1));
        const Bytes &got = calls().kernel[0].bytes;
        Bytes stripped = bytes;
        if (bytes[12] == 0x81 && bytes[13] == 0x00)
            stripped.erase(stripped.begin() + 12, stripped.begin() + 16);
        EXPECT_EQ(Bytes(got.begin() + 6, got.end()), Bytes(stripped.begin() + 6, stripped.end()));
        u32 reason = 0;
        while (redirect("vornappsd").stop_reasons[reason] == before.stop_reasons[reason])
            reason++;
        return Taken{Bytes(got.begin(), got.begin() + 6), mark, reason};
    }
    static Bytes address(const char *text) {
        Mac bytes = mac(text);
        return Bytes(bytes.begin(), bytes.end());
    }

    static inline void (*real)(sk_buff *, void **) = nullptr;
    static inline u32 last_mark = 0;

    void SetUp() override { real = redirect("vornappsd").pre_post_modify; }
};

TEST_F(Vornappsd, web_traffic_of_a_listed_host_goes_up_as_if_for_us) {
    EXPECT_EQ(taken(web(80)), (Taken{address(OWN), 0x106, 1}));
    EXPECT_EQ(taken(web(443)), (Taken{address(OWN), 0x105, 2}));
}

TEST_F(Vornappsd, what_is_for_us_already_is_marked_alone) {
    EXPECT_EQ(taken(web(80, OWN)), (Taken{address(OWN), 0x106, 1}));
}

TEST_F(Vornappsd, other_ports_hosts_and_protocols_are_not_taken) {
    for (u16 port : {22, 79, 81, 442, 444, 8080, 0})
        EXPECT_EQ(taken(web(port)), std::nullopt) << port;
    Bytes other = web(80);
    other[29] = 9; // another source
    EXPECT_EQ(taken(other), std::nullopt);
    Bytes answer = web(80); // to a listed host, from another
    std::copy_n(answer.begin() + 26, 4, answer.begin() + 30);
    answer[29] = 9;
    EXPECT_EQ(taken(answer), std::nullopt);
    Bytes udp = web(80);
    udp[23] = 17;
    EXPECT_EQ(taken(udp), std::nullopt);
    EXPECT_EQ(taken(Frame().ipv6({.next = TCP}).bytes({1, 1, 0, 80})), std::nullopt);
}

TEST_F(Vornappsd, the_port_stands_behind_the_options_and_a_tag) {
    for (u8 ihl : {5, 6, 15})
        EXPECT_TRUE(taken(web(80, ELSEWHERE, ihl))) << int{ihl};
    EXPECT_TRUE(taken(web(80, ELSEWHERE, 5, 1))); // stripped
    EXPECT_TRUE(taken(web(80, ELSEWHERE, 5, 2))); // one is left
    EXPECT_TRUE(taken(web(443, ELSEWHERE, 8, 2)));
}

TEST_F(Vornappsd, a_frame_that_ends_before_the_port_has_port_zero) {
    Bytes frame = web(80);
    for (std::size_t length = 30; length < 38; length++) {
        frame = web(80);
        frame.resize(length);
        // The low byte of 80 is its last: one byte short it reads 0.
        EXPECT_EQ(taken(frame), std::nullopt) << length;
    }
}

TEST_F(Vornappsd, an_empty_list_takes_nothing) {
    tarn_vornappsd_remove_ip_address(&HOST);
    EXPECT_EQ(taken(web(80)), std::nullopt);
    EXPECT_EQ(redirect("vornappsd").inspects, 1u);
}

TEST_F(Vornappsd, a_routed_ethernet_port_has_its_own_address) {
    port1()->type = TARN_IF_TYPE_ETHERNET;
    EXPECT_EQ(taken(web(80))->to, Bytes(port1()->hwaddr, port1()->hwaddr + 6));
    port1()->type = TARN_IF_TYPE_SWITCHPORT;
    EXPECT_EQ(taken(web(80))->to, address(OWN));
}

TEST_F(Vornappsd, without_a_vlan_interface_nothing_is_rewritten) {
    sk_buff *skb = userlevel::frame_make(web(80));
    tarn_pkt_info info = passing(0x0800);
    info.skb = skb;
    info.ip_proto = TCP;
    info.l2_port = port1();
    memcpy(info.src_ip, &HOST, sizeof(HOST));
    redirect_instruct instruct{};
    EXPECT_EQ(redirect("vornappsd").match(&info, &instruct), 1);
    EXPECT_EQ(instruct.flags, KERNEL);
    redirect("vornappsd").pre_post_modify(skb, &instruct.pre_post_arg);
    EXPECT_EQ(instruct.pre_post_arg, nullptr);
    EXPECT_EQ(skb_mark(skb), 6u);
    EXPECT_EQ(Bytes(skb_data(skb), skb_data(skb) + 6), address(ELSEWHERE));
    kfree_skb(skb);
}

TEST_F(Vornappsd, the_hook_without_a_request_does_nothing) {
    void *none = nullptr;
    redirect("vornappsd").pre_post_modify(nullptr, &none);
    sk_buff *skb = userlevel::frame_make(web(80));
    redirect("vornappsd").pre_post_modify(skb, &none);
    EXPECT_EQ(skb_mark(skb), 0u);
    kfree_skb(skb);
}

TEST_F(Vornappsd, without_memory_the_frame_goes_up_as_it_is) {
    userlevel::fail_allocation(1);
    sk_buff *skb = userlevel::frame_make(web(80));
    kfree_skb(skb);
    for (u64 n = 1; n <= 3; n++) {
        sk_buff *frame = userlevel::frame_make(web(80));
        sk_buff *held = skb_clone(frame, GFP_ATOMIC);
        calls().kernel.clear();
        userlevel::fail_allocation(n);
        EXPECT_EQ(receive_skb(frame), 0u);
        userlevel::fail_allocation(0);
        ASSERT_THAT(calls().kernel, SizeIs(1));
        EXPECT_EQ(Bytes(calls().kernel[0].bytes.begin(), calls().kernel[0].bytes.begin() + 6),
                  address(ELSEWHERE))
            << n;
        kfree_skb(held);
        expect_nothing_leaked();
    }
}

TEST_F(Vornappsd, bytes_shared_with_a_clone_are_left_alone) {
    sk_buff *frame = userlevel::frame_make(web(80));
    sk_buff *held = skb_clone(frame, GFP_ATOMIC);
    receive_skb(frame);
    EXPECT_EQ(Bytes(skb_data(held), skb_data(held) + skb_len(held)), web(80));
    ASSERT_THAT(calls().kernel, SizeIs(1));
    EXPECT_EQ(calls().kernel[0].bytes[5], 1);
    kfree_skb(held);
}

TEST_F(Vornappsd, a_refused_request_is_freed) {
    // Another redirect cannot make it fail; a hook that gets no frame only frees.
    sk_buff *skb = userlevel::frame_make(web(80));
    tarn_pkt_info info = passing(0x0800);
    info.skb = skb;
    info.ip_proto = TCP;
    info.vlan_if = vlan1();
    memcpy(info.src_ip, &HOST, sizeof(HOST));
    redirect_instruct instruct{};
    redirect("vornappsd").match(&info, &instruct);
    ASSERT_NE(instruct.pre_post_arg, nullptr);
    redirect("vornappsd").pre_post_modify(nullptr, &instruct.pre_post_arg);
    EXPECT_EQ(instruct.pre_post_arg, nullptr);
    kfree_skb(skb);
}

TEST_F(Vornappsd, addresses_come_and_go) {
    const u32 addresses[] = {0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, HOST};
    for (u32 address : addresses) {
        EXPECT_EQ(tarn_vornappsd_add_ip_address(&address), 0);
        EXPECT_EQ(tarn_vornappsd_add_ip_address(&address), 0); // known
    }
    for (u32 address : addresses)
        EXPECT_EQ(tarn_vornappsd_remove_ip_address(&address), 0);
    EXPECT_EQ(taken(web(80)), std::nullopt);
    EXPECT_EQ(tarn_vornappsd_remove_ip_address(&HOST), 0); // absent
    EXPECT_EQ(tarn_vornappsd_add_ip_address(nullptr), 0);
    EXPECT_EQ(tarn_vornappsd_remove_ip_address(nullptr), 0);
}

TEST_F(Vornappsd, an_address_that_goes_leaves_nothing) {
    const u32 other = HOST + 1;
    auto come_and_go = [&] {
        tarn_vornappsd_add_ip_address(&other);
        tarn_vornappsd_remove_ip_address(&other);
    };
    configure(come_and_go); // a node waits for the next
    come_and_go();
    expect_nothing_leaked();
}

TEST_F(Vornappsd, an_add_without_memory_leaves_nothing) {
    tarn_vornappsd_remove_ip_address(&HOST);
    const u32 one = 1, two = 2;
    configure([&] { tarn_vornappsd_add_ip_address(&one); }); // takes the spare node
    for (u64 n : {1, 2}) {
        userlevel::fail_allocation(n);
        EXPECT_EQ(tarn_vornappsd_add_ip_address(&two), 0);
        userlevel::fail_allocation(0);
        expect_nothing_leaked();
    }
    tarn_vornappsd_remove_ip_address(&one);
}

} // namespace
