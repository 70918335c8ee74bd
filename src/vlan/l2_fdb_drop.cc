// "l2fdbdrop": the frame of a redirect for blocked pairs of address and VLAN. It lets everything
// pass: the table (l2_fdb_block.h) turns it on and off, and is not asked, on purpose.
#include "pkt/pkt_redirect.h"
#include "vlan/l2_fdb_block.h"
#include "vlan/vlan.h"

namespace {

i32 tarn_l2_fdb_drop_redirect_instruct_get(tarn_pkt_info *, redirect_instruct *) {
    return 0;
}

} // namespace

i32 tarn_l2_fdb_drop_init() {
    l2_fdb_block_init();
    packet_redirect record{.name = "l2fdbdrop",
                           .match = tarn_l2_fdb_drop_redirect_instruct_get,
                           .post = tarn_pkt_packet_post_dummy,
                           .concerns = 0};
    i32 result = tarn_pkt_register_packet_redirection(&record, L2_FDB_DROP_SLOT);
    if (result == 0)
        enable_redirect(L2_FDB_DROP_SLOT, 0);
    return result;
}
