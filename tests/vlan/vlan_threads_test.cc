// The bitmaps of a port, written in several contexts at once: commands, files, the ends of VLANs.
#include "support/graph_test.h"

#include <thread>

namespace {

class VlanThreads : public GraphTest {};

TEST_F(VlanThreads, vlans_that_share_a_word_are_written_at_once_and_none_is_lost) {
    constexpr u32 BASE = 64, TURNS = 20000;
    tarn_if *port = port_with(77);
    std::vector<std::thread> all;
    for (u32 k = 0; k < 4; k++)
        all.emplace_back([k] {
            for (u32 turn = 0; turn < TURNS; turn++)
                for (u32 on : {0u, 1u})
                    tarn_vlan_set_vlan_port_disabled(77, BASE + 8 * k, on);
        });
    for (std::thread &one : all)
        one.join();
    EXPECT_THAT(vids_in(port->vlan_disabled_bmp),
                ::testing::ElementsAre(BASE, BASE + 8, BASE + 16, BASE + 24));
}

} // namespace
