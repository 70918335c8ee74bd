// receive_cost CLASS FRAMES: offers that many frames of a class, for an instruction counter to
// watch. Without arguments it lists the classes.
#include "frame_classes.h"

#include "kernel/skb.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv) {
    auto classes = frame_classes::all();
    if (argc != 3) {
        for (const auto &one : classes)
            std::printf("%s\n", one.name.c_str());
        return 0;
    }
    frame_classes::load();
    const tarn_rx_meta meta = frame_classes::meta();
    for (const auto &one : classes) {
        if (one.name != argv[1])
            continue;
        for (long i = std::atol(argv[2]); i > 0; i--) {
            sk_buff *skb = userlevel::frame_make(one.frame);
            if (rxtx_hw_packet_recv(skb, 5001, 1, &meta) != 0)
                kfree_skb(skb);
        }
        return 0;
    }
    std::fprintf(stderr, "receive_cost: there is no class '%s'\n", argv[1]);
    return 2;
}
