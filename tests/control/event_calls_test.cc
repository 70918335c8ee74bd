// What the kernel is asked for when an event or a frame is sent, and what becomes of the message
// when it refuses.
#include "support/switch_test.h"

#include "events/tarnfwd_netlink.h"
#include "events/tarnfwd_nl_event.h"
#include "kernel/genl.h"

using ::testing::ElementsAre;

namespace {

// What the calls were given; and what they answer in the kernel's place, where a test says so.
struct Kernel {
    std::vector<std::vector<u64>> buffers, headers, sent, sockets, broadcasts;
    std::optional<void *> header_result;
    int attributes_until_refused = -1; // -1: none is
};
Kernel kernel;

} // namespace

// The linker leads each call to its __wrap_ form, and __real_ to the home's own.
#define WRAPPED(result, name, symbol, ...)                                                         \
    result name(__VA_ARGS__) asm("__wrap_" symbol);                                                \
    result real##name(__VA_ARGS__) asm("__real_" symbol);                                          \
    result name(__VA_ARGS__)

WRAPPED(sk_buff *, _alloc, "__alloc_skb", u32 size, gfp_t flags, int of, int node) {
    kernel.buffers.push_back(
        {size, flags, static_cast<u64>(of), static_cast<u64>(static_cast<i64>(node))});
    return real_alloc(size, flags, of, node);
}

WRAPPED(void *, _put, "_Z11genlmsg_putP7sk_buffjjPK18genl_family_recordih", sk_buff *skb,
        u32 portid, u32 sequence, const genl_family_record *family, int flags, u8 command) {
    kernel.headers.push_back(
        {portid, sequence, family == &tarnfwd_nl_family, static_cast<u64>(flags), command});
    return kernel.header_result ? *kernel.header_result
                                : real_put(skb, portid, sequence, family, flags, command);
}

WRAPPED(int, _nla, "nla_put", sk_buff *skb, int type, int length, const void *data) {
    if (kernel.attributes_until_refused == 0)
        return -EMSGSIZE;
    if (kernel.attributes_until_refused > 0)
        kernel.attributes_until_refused--;
    return real_nla(skb, type, length, data);
}

WRAPPED(i32, _multicast, "_Z23genlmsg_multicast_allnsPK18genl_family_recordP7sk_buffjjj",
        const genl_family_record *family, sk_buff *skb, u32 portid, u32 group, gfp_t flags) {
    kernel.sent.push_back({family == &tarnfwd_nl_family, portid, group, flags});
    return real_multicast(family, skb, portid, group, flags);
}

WRAPPED(sock *, _create, "_Z21netlink_kernel_createij", int protocol, u32 groups) {
    kernel.sockets.push_back({static_cast<u64>(protocol), groups});
    return real_create(protocol, groups);
}

WRAPPED(i32, _broadcast, "_Z17netlink_broadcastP4sockP7sk_buffjjj", sock *from, sk_buff *skb,
        u32 portid, u32 group, gfp_t flags) {
    kernel.broadcasts.push_back({from != nullptr, portid, group, flags});
    return real_broadcast(from, skb, portid, group, flags);
}

namespace {

constexpr int NOBODY_LISTENS = -3;
const u8 HEADER[20] = {};

i32 send_event() {
    return tarnfwd_nl_send_dos_match(1, 2, 3, HEADER);
}

struct EventCalls : SwitchTest {
    EventCalls() {
        calls().pass_on = true;
        kernel = {};
    }
};

TEST_F(EventCalls, an_event_is_a_request_of_nobody_to_the_first_group) {
    EXPECT_EQ(send_event(), NOBODY_LISTENS);
    EXPECT_THAT(kernel.headers, ElementsAre(ElementsAre(0, 0, true, 0, 74)));
    EXPECT_THAT(kernel.sent, ElementsAre(ElementsAre(true, 0, 0, GFP_KERNEL)));
    EXPECT_THAT(kernel.buffers, ElementsAre(ElementsAre(3840, GFP_KERNEL, 0, ~u64{0})));
}

TEST_F(EventCalls, an_event_of_a_frame_does_not_wait) {
    local_bh_disable();
    EXPECT_EQ(send_event(), NOBODY_LISTENS);
    local_bh_enable();
    EXPECT_THAT(kernel.sent, ElementsAre(ElementsAre(true, 0, 0, GFP_ATOMIC)));
    EXPECT_THAT(kernel.buffers, ElementsAre(ElementsAre(3840, GFP_ATOMIC, 0, ~u64{0})));
}

TEST_F(EventCalls, a_header_that_does_not_fit_ends_the_event) {
    kernel.header_result = nullptr;
    EXPECT_EQ(send_event(), -EMSGSIZE);
    EXPECT_THAT(kernel.sent, ElementsAre());
}

TEST_F(EventCalls, a_header_that_is_an_error_is_the_result) {
    kernel.header_result = reinterpret_cast<void *>(static_cast<std::intptr_t>(-ENOMEM));
    EXPECT_EQ(send_event(), -ENOMEM);
    EXPECT_THAT(kernel.sent, ElementsAre());
}

TEST_F(EventCalls, an_attribute_that_does_not_fit_ends_the_event) {
    for (int fit = 0; fit < 4; fit++) {
        kernel.attributes_until_refused = fit;
        EXPECT_EQ(send_event(), -EMSGSIZE) << fit;
    }
    EXPECT_THAT(kernel.sent, ElementsAre());
}

TEST_F(EventCalls, without_memory_there_is_no_event) {
    userlevel::fail_allocation(1);
    EXPECT_EQ(send_event(), -ENOMEM);
    EXPECT_THAT(kernel.headers, ElementsAre());
}

TEST(RawSocket, it_is_made_once_when_the_first_group_is_reserved) {
    kernel = {};
    tarnfwd_netlink_init();
    sk_buff *early = userlevel::frame_make(Bytes{1});
    EXPECT_EQ(tarnfwd_netlink_broadcast(early, 1), -EINVAL); // and frees it
    EXPECT_THAT(kernel.broadcasts, ElementsAre());
    EXPECT_EQ(tarnfwd_netlink_reserve(1), 0);
    EXPECT_EQ(tarnfwd_netlink_reserve(2), 0);
    EXPECT_EQ(tarnfwd_netlink_reserve(1), -EBUSY);
    EXPECT_THAT(kernel.sockets, ElementsAre(ElementsAre(2, 32)));
    EXPECT_EQ(tarnfwd_netlink_broadcast(userlevel::frame_make(Bytes{1}), 2), NOBODY_LISTENS);
    EXPECT_THAT(kernel.broadcasts, ElementsAre(ElementsAre(true, 0, 2, GFP_ATOMIC)));
    for (const userlevel::object &object : userlevel::live())
        EXPECT_STRNE(object.kind, "sk_buff");
}

TEST(RawSocket, without_memory_no_group_is_reserved_until_there_is) {
    tarnfwd_netlink_init();
    userlevel::fail_allocation(1);
    EXPECT_EQ(tarnfwd_netlink_reserve(1), -EINVAL);
    EXPECT_EQ(userlevel::log_take().size(), 2u);
    EXPECT_EQ(tarnfwd_netlink_reserve(1), 0);
}

} // namespace
