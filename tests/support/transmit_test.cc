#include "support/transmit_test.h"

#include "ifmgr/tarn_ifmgr_create.h"

tarn_if *TransmitTest::add_ethernet(const char *name, u32 ifindex) {
    return configure([&] {
        const u8 address[6] = {2, 0, 0, 0, 3, 1};
        EXPECT_EQ(
            tarn_ifmgr_ethernet_create(name, address, TARN_IF_LINK, ifindex, TARN_IF_TYPE_ETHERNET),
            0);
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        tarn_ifmgr_if_ref_put(ifp);
        return ifp;
    });
}
