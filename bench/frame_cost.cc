// frame_cost CLASS FRAMES: offers or sends that many frames of a class, for an instruction counter
// to watch. Without arguments it lists the classes, each with the function in which its cost is
// counted. What comes of a frame that was received, once it is decided, is counted in
// tarn_pkt_carry_out.
#include "frame_classes.h"
#include "listeners.h"
#include "transmit_classes.h"

#include "kernel/skb.h"

#include <cstdio>
#include <cstdlib>

namespace {

void receive(const frame_classes::Class &one, long count) {
    frame_classes::load();
    Listeners listeners(one.family, one.sockets);
    const tarn_rx_meta meta = frame_classes::meta();
    for (; count > 0; count--) {
        sk_buff *skb = userlevel::frame_make(one.frame);
        if (rxtx_hw_packet_recv(skb, 5001, 1, &meta) != 0)
            kfree_skb(skb);
        listeners.read_all();
    }
}

void send(const transmit_classes::Class &one, long count) {
    transmit_classes::load();
    one.prepare();
    for (; count > 0; count--)
        one.send();
}

int list() {
    for (const auto &one : frame_classes::all())
        std::printf("%s rxtx_hw_packet_recv\n", one.name.c_str());
    for (const auto &one : transmit_classes::all())
        std::printf("%s %s\n", one.name.c_str(), one.function);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3)
        return list();
    const std::string wanted = argv[1];
    const long count = std::atol(argv[2]);
    for (const auto &one : frame_classes::all())
        if (one.name == wanted)
            return receive(one, count), 0;
    for (const auto &one : transmit_classes::all())
        if (one.name == wanted)
            return send(one, count), 0;
    std::fprintf(stderr, "frame_cost: there is no class '%s'\n", wanted.c_str());
    return 2;
}
