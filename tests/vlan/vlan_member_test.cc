// VLAN membership: the bitmaps of ports.
#include "support/graph_test.h"

#include "vlan/vlan_bits.h"

#include <algorithm>

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr u32 NOBODY = 4242;

class Member : public GraphTest {
protected:
    tarn_if *port = port_with(77);
    tarn_if *eth = ethernet(78, "eth9");
};

TEST_F(Member, a_vid_has_its_bit_in_the_word_of_its_32) {
    u32 bitmap[TARN_VLAN_COUNT / 32] = {};
    for (u32 vid : {0u, 31u, 32u, 4095u})
        vlan_bit_write(bitmap, vid, true);
    EXPECT_EQ(bitmap[0], 0x80000001u);
    EXPECT_EQ(bitmap[1], 1u);
    EXPECT_EQ(bitmap[127], 0x80000000u);
    EXPECT_TRUE(vlan_bit(bitmap, 31));
    EXPECT_FALSE(vlan_bit(bitmap, 30));
    vlan_bit_write(bitmap, 31, false);
    EXPECT_EQ(bitmap[0], 1u);
}

TEST_F(Member, a_vid_above_4095_is_in_no_bitmap) {
    for (u32 vid : {4096u, 0xFFFFu, 0xFFFFFFFFu}) {
        EXPECT_FALSE(tarn_vlan_port_member_check(port, vid));
        EXPECT_FALSE(tarn_vlan_egress_tagged(port, vid));
        EXPECT_FALSE(tarn_vlan_is_vlan_port_disabled(port, vid));
        EXPECT_EQ(tarn_vlan_set_vlan_port_disabled(77, vid, 1), -EINVAL);
    }
    EXPECT_THAT(port->vlan_disabled_bmp, Each(0u));
    EXPECT_EQ(port->default_pvid, 0); // the field behind
}

TEST_F(Member, each_question_reads_its_own_bitmap) {
    vlan_bit_write(port->vlan_member_bmp, 10, true);
    vlan_bit_write(port->vlan_tagged_bmp, 11, true);
    vlan_bit_write(port->vlan_disabled_bmp, 12, true);
    for (u32 vid = 9; vid <= 13; vid++) {
        EXPECT_EQ(tarn_vlan_port_member_check(port, vid), vid == 10);
        EXPECT_EQ(tarn_vlan_egress_tagged(port, vid), vid == 11);
        EXPECT_EQ(tarn_vlan_is_vlan_port_disabled(port, vid), vid == 12);
    }
}

TEST_F(Member, nothing_leaves_tagged_but_through_a_port) {
    vlan_bit_write(vlan1()->vlan_tagged_bmp, 10, true);
    vlan_bit_write(eth->vlan_tagged_bmp, 10, true);
    EXPECT_FALSE(tarn_vlan_egress_tagged(nullptr, 10));
    EXPECT_FALSE(tarn_vlan_egress_tagged(vlan1(), 10));
    EXPECT_FALSE(tarn_vlan_egress_tagged(eth, 10));
    // The others ask for no type.
    vlan_bit_write(vlan1()->vlan_member_bmp, 10, true);
    vlan_bit_write(vlan1()->vlan_disabled_bmp, 10, true);
    EXPECT_TRUE(tarn_vlan_port_member_check(vlan1(), 10));
    EXPECT_TRUE(tarn_vlan_is_vlan_port_disabled(vlan1(), 10));
}

TEST_F(Member, the_settings_of_a_port_are_refused_to_others) {
    Bitmap one{10};
    for (u32 ifindex : {301u, 78u, NOBODY}) {
        EXPECT_EQ(tarn_vlan_set_ingress_filter(ifindex, 1), -EINVAL);
        EXPECT_EQ(tarn_vlan_set_default_pvid(ifindex, 10), -EINVAL);
        EXPECT_EQ(tarn_vlan_set_vlan_port_disabled(ifindex, 10, 1), -EINVAL);
        EXPECT_EQ(tarn_vlan_set_vlan_port_disabled_bmp(ifindex, one.words, 1), -EINVAL);
        EXPECT_EQ(tarn_vlan_set_vlan_port_disable_all(ifindex, 1), -EINVAL);
    }
    for (tarn_if *ifp : {vlan1(), eth}) {
        EXPECT_EQ(ifp->ingress_filter, 0);
        EXPECT_EQ(ifp->default_pvid, 0);
        EXPECT_THAT(ifp->vlan_disabled_bmp, Each(0u));
    }
}

TEST_F(Member, the_type_is_asked_at_the_first_set_bit) {
    Bitmap none{}, outside{0, 4095};
    for (u32 ifindex : {301u, 78u, 77u}) {
        EXPECT_EQ(tarn_vlan_set_vlan_port_disabled_bmp(ifindex, none.words, 1), 0);
        EXPECT_EQ(tarn_vlan_set_vlan_port_disabled_bmp(ifindex, outside.words, 1), 0);
    }
    EXPECT_EQ(tarn_vlan_set_vlan_port_disabled_bmp(NOBODY, none.words, 1), -EINVAL);
    Bitmap last{4094};
    EXPECT_EQ(tarn_vlan_set_vlan_port_disabled_bmp(301, last.words, 1), -EINVAL);
}

TEST_F(Member, the_ingress_filter_and_the_port_vlan_are_kept) {
    EXPECT_EQ(tarn_vlan_set_ingress_filter(77, 1), 0);
    EXPECT_EQ(port->ingress_filter, 1);
    EXPECT_EQ(tarn_vlan_set_ingress_filter(77, 0), 0);
    EXPECT_EQ(port->ingress_filter, 0);
    for (u16 vid : {10, 4095, 0xFFFF, 0}) {
        EXPECT_EQ(tarn_vlan_set_default_pvid(77, vid), 0);
        EXPECT_EQ(port->default_pvid, vid);
    }
}

TEST_F(Member, one_vlan_is_disabled_and_enabled_member_or_not) {
    for (u32 vid : {0u, 10u, 4095u}) {
        EXPECT_EQ(tarn_vlan_set_vlan_port_disabled(77, vid, 1), 0);
        EXPECT_THAT(vids_in(port->vlan_disabled_bmp), ElementsAre(vid));
        EXPECT_EQ(tarn_vlan_set_vlan_port_disabled(77, vid, 0), 0);
        EXPECT_THAT(vids_in(port->vlan_disabled_bmp), IsEmpty());
    }
    EXPECT_EQ(tarn_vlan_set_vlan_port_disabled(77, 10, 0x100), 0); // any value but 0
    EXPECT_TRUE(tarn_vlan_is_vlan_port_disabled(port, 10));
    EXPECT_THAT(vids_in(port->vlan_member_bmp), IsEmpty());
}

TEST_F(Member, a_bitmap_disables_the_vlans_that_it_names_and_leaves_the_others) {
    Bitmap some{0, 1, 10, 32, 4094, 4095}, fewer{10, 11};
    EXPECT_EQ(tarn_vlan_set_vlan_port_disabled(77, 500, 1), 0);
    EXPECT_EQ(tarn_vlan_set_vlan_port_disabled_bmp(77, some.words, 1), 0);
    EXPECT_THAT(vids_in(port->vlan_disabled_bmp), ElementsAre(1, 10, 32, 500, 4094));
    EXPECT_EQ(tarn_vlan_set_vlan_port_disabled_bmp(77, fewer.words, 0), 0);
    EXPECT_THAT(vids_in(port->vlan_disabled_bmp), ElementsAre(1, 32, 500, 4094));
}

TEST_F(Member, all_vlans_are_1_to_4094) {
    EXPECT_EQ(tarn_vlan_set_vlan_port_disable_all(77, 1), 0);
    auto vids = vids_in(port->vlan_disabled_bmp);
    EXPECT_EQ(vids.size(), 4094u);
    EXPECT_EQ(vids.front(), 1u);
    EXPECT_EQ(vids.back(), 4094u);
    tarn_vlan_set_vlan_port_disabled(77, 0, 1);
    tarn_vlan_set_vlan_port_disabled(77, 4095, 1);
    EXPECT_EQ(tarn_vlan_set_vlan_port_disable_all(77, 0), 0);
    EXPECT_THAT(vids_in(port->vlan_disabled_bmp), ElementsAre(0, 4095));
}

TEST_F(Member, an_aggregator_is_a_port_too) {
    tarn_if *lag = aggregator(7001);
    EXPECT_EQ(tarn_vlan_set_default_pvid(7001, 10), 0);
    EXPECT_EQ(lag->default_pvid, 10);
}

} // namespace
