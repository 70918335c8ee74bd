#include "support/switch_test.h"

#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_settings.h"
#include "module/tarn_module.h"
#include "pkt/pkt_candidates.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr u32 VORNAPPSD_SLOT = 33;
constexpr u32 LAST_SLOT = 48;
constexpr u32 MIDDLE_SLOT = 27;

std::map<u32, Probe> probes;

template <u32 Slot>
i32 probe_match(tarn_pkt_info *info, redirect_instruct *instruct) {
    Probe &probe = probes[Slot];
    probe.matched++;
    probe.seen = *info;
    probe.bytes.assign(skb_data(info->skb), skb_data(info->skb) + skb_len(info->skb));
    if (probe.match)
        probe.match(*info, *instruct);
    return 0;
}

template <u32 Slot>
sk_buff *probe_post(sk_buff *skb, tarn_post_info *info) {
    Probe &probe = probes[Slot];
    probe.posted++;
    return probe.post ? probe.post(skb, *info) : skb;
}

template <u32 Slot>
void register_probe() {
    packet_redirect record{.name = "probe", .match = probe_match<Slot>, .post = probe_post<Slot>};
    tarn_pkt_register_packet_redirection(&record, Slot);
}

// Nobody looks at what a match answers, so that only here it is seen to be what it should: 0, but
// for one that takes a frame with 1.
std::array<decltype(packet_redirect::match), REDIRECT_SLOTS> matches{};

template <u32 Slot>
i32 watched_match(tarn_pkt_info *info, redirect_instruct *instruct) {
    const u32 before = instruct->flags;
    const i32 result = matches[Slot](info, instruct);
    const bool takes = Slot == VORNAPPSD_SLOT && instruct->flags != before;
    EXPECT_EQ(result, takes ? 1 : 0) << packet_redirects[Slot]->name;
    EXPECT_EQ(instruct->flags & before, before) << packet_redirects[Slot]->name;
    return result;
}

template <std::size_t... Slots>
void watch_matches(std::index_sequence<Slots...>) {
    ((matches[Slots] = packet_redirects[Slots] ? packet_redirects[Slots]->match : nullptr), ...);
    ((matches[Slots] ? void(packet_redirects[Slots]->match = watched_match<Slots>) : void()), ...);
}

std::vector<tarn_if *> all_interfaces() {
    std::vector<tarn_if *> all;
    for (tarn_avl_node *node = tarn_avl_first_node(p_tarn_if_db->tree); node;
         node = tarn_avl_next_node(node))
        all.push_back(static_cast<tarn_if *>(node->info));
    return all;
}

// Each record of an interface is in the tree, or waits beside it for those who hold it.
std::size_t records_that_are_known() {
    std::size_t known = all_interfaces().size();
    for (const tarn_if *ifp = tarn_ifmgr_replaced; ifp; ifp = ifp->replaced_next)
        known++;
    return known;
}

std::size_t records_alive() {
    std::vector<userlevel::object> all = userlevel::live();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [](const userlevel::object &object) {
            return object.bytes == sizeof(tarn_if) && std::strcmp(object.kind, "kmalloc") == 0;
        }));
}

} // namespace

SwitchTest::SwitchTest() {
    EXPECT_EQ(init_module(), 0);
    watch_matches(std::make_index_sequence<REDIRECT_SLOTS>());
    register_probe<LAST_SLOT>();
    register_probe<MIDDLE_SLOT>();
    enable_redirect(LAST_SLOT, 0);
    enable_redirect(MIDDLE_SLOT, 0);
    port1_ = plain_switch::add_port(1);
    vlan1_ = plain_switch::add_vlan(1);
    plain_switch::add_member(port1_, 1);
    log();
    remember();
}

SwitchTest::~SwitchTest() {
    expect_nothing_leaked();
    EXPECT_EQ(records_alive(), records_that_are_known());
    EXPECT_THAT(log(), ::testing::IsEmpty()) << "log lines that the test did not look at";
    EXPECT_EQ(preempt_count(), 0u);
}

void SwitchTest::remember() {
    EXPECT_EQ(records_alive(), records_that_are_known());
    before_ = userlevel::take_snapshot();
    references_.clear();
    for (tarn_if *ifp : all_interfaces())
        references_[ifp] = refcount_read(&ifp->refcnt);
}

void SwitchTest::expect_nothing_leaked() {
    EXPECT_EQ(userlevel::describe(userlevel::leaked_since(before_)), "");
    for (tarn_if *ifp : all_interfaces())
        EXPECT_EQ(refcount_read(&ifp->refcnt), references_[ifp]) << "references of " << ifp->name;
}

tarn_if *SwitchTest::add_port(u32 k) {
    return configure([&] {
        tarn_if *port = plain_switch::add_port(k);
        plain_switch::add_member(port, 1);
        return port;
    });
}

tarn_if *SwitchTest::add_vlan(u32 vid) {
    return configure([&] { return plain_switch::add_vlan(vid); });
}

tarn_if *SwitchTest::add_aggregator_over(tarn_if *port, u32 ifindex) {
    return configure([&] {
        const u8 address[6] = {2, 0, 0, 0, 2, 1};
        EXPECT_EQ(tarn_ifmgr_aggregator_add("lag1", address, TARN_AGG_TYPE_STATIC, ifindex), 0);
        EXPECT_EQ(tarn_ifmgr_aggregator_port_attach(ifindex, port->ifindex), 0);
        userlevel::work_run();
        tarn_if *aggregator = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(aggregator);
        return aggregator;
    });
}

u32 SwitchTest::receive(const Bytes &frame, const Arrival &arrival) {
    return receive_skb(userlevel::frame_make(frame), arrival);
}

u32 SwitchTest::receive_skb(sk_buff *skb, const Arrival &arrival) {
    frame_set_port_word(skb, arrival.port_word);
    skb_set_mark(skb, arrival.mark);
    u32 ifindex = arrival.port == 0 ? 9999 : plain_switch::FIRST_PORT_IFINDEX + arrival.port;
    u32 result = rxtx_hw_packet_recv(skb, ifindex, arrival.vid, &arrival.meta);
    if (result != 0)
        kfree_skb(skb);
    return result;
}

u32 SwitchTest::mark_after(const Bytes &frame, const Arrival &arrival) {
    u32 mark = 0;
    probe().match = [&](tarn_pkt_info &info, redirect_instruct &) { mark = skb_mark(info.skb); };
    receive(frame, arrival);
    EXPECT_EQ(probe().matched, 1) << "the frame did not reach the end of the chain";
    return mark;
}

packet_redirect &SwitchTest::redirect(const std::string &name) {
    pkt_candidates_sum_up();
    for (packet_redirect *redirect : packet_redirects)
        if (redirect && name == redirect->name)
            return *redirect;
    ADD_FAILURE() << "no redirect is named " << name;
    std::abort();
}

Probe &SwitchTest::probe(u32 slot) {
    enable_redirect(slot, 1);
    return probes[slot];
}

tarn_pkt_info SwitchTest::classify(const Bytes &frame, const Arrival &arrival) {
    // Before the redirects that decide on IP.
    Probe &middle = probe(MIDDLE_SLOT);
    int before = middle.matched;
    receive(frame, arrival);
    EXPECT_EQ(middle.matched, before + 1) << "the frame did not reach the middle of the chain";
    return middle.seen;
}

std::vector<std::string> SwitchTest::log() {
    std::vector<std::string> lines;
    for (const auto &line : userlevel::log_take())
        lines.push_back(std::to_string(line.level) + " " + line.text);
    return lines;
}

std::string printed(const std::function<void(seq_file *)> &print) {
    userlevel::view view;
    print(view.file());
    return view.text();
}
