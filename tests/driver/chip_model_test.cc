// Random frames and commands against a model that says in a few lines what a switch does.
#include "chip_test.h"

#include "port.h"

#include <random>

namespace {

constexpr int STEPS = 100000;
constexpr u32 PORTS = 4, HOSTS = 12, VLANS = 2;

struct Model {
    struct Port {
        bool up = true, learns = true;
        u32 pvid = 1;
        std::array<bool, VLANS + 1> member{}, tagged{};
    };
    struct Place {
        u32 port;
        unsigned long heard;
    };

    std::array<Port, PORTS> ports;
    std::map<std::pair<u32, u32>, Place> places; // (host, vid)
    unsigned long now = 0;

    const Place *find(u32 host, u32 vid) const {
        auto at = places.find({host, vid});
        return at == places.end() || now - at->second.heard >= 30000 ? nullptr : &at->second;
    }

    // The ports that it leaves by.
    std::set<u32> forward(u32 from, u32 source, u32 destination, u32 tag) {
        u32 vid = tag != 0 ? tag : ports[from].pvid;
        if (!ports[from].up || vid == 0 || !ports[from].member[vid])
            return {};
        if (ports[from].learns && source != 0)
            places[{source, vid}] = {from, now};
        if (destination == 0) // the switch itself
            return {};
        std::set<u32> out;
        const Place *place = find(destination, vid);
        for (u32 port = 0; port < PORTS; port++)
            if (port != from && ports[port].up && ports[port].member[vid] &&
                (!place || place->port == port))
                out.insert(port);
        return out;
    }
};

std::string address(u32 host) { // host 0 is the switch
    char text[18];
    std::snprintf(text, sizeof(text), "02:00:00:00:01:%02x", host);
    return text;
}

} // namespace

class RandomFrames : public ChipTest {
protected:
    RandomFrames() {
        model.now = 0;
        for (u32 vid = 1; vid <= VLANS; vid++)
            tell("mac " + address(0) + " " + std::to_string(vid));
        for (u32 port = 0; port < PORTS; port++)
            model.ports[port].member[1] = true;
    }

    u32 below(u32 limit) { return std::uniform_int_distribution<u32>(0, limit - 1)(random); }

    void change_something() {
        u32 port = below(PORTS), vid = 1 + below(VLANS);
        Model::Port &at = model.ports[port];
        std::string name = std::to_string(101 + port), vlan = std::to_string(vid);
        switch (below(6)) {
        case 0:
            at.up = below(4) != 0;
            tell("link " + name + (at.up ? " up" : " down"));
            break;
        case 1:
            at.learns = below(4) != 0;
            tell("learn " + name + (at.learns ? " on" : " off"));
            break;
        case 2:
            at.pvid = below(VLANS + 1);
            tell("pvid " + name + " " + std::to_string(at.pvid));
            break;
        case 3:
            at.member[vid] = true;
            at.tagged[vid] = below(2) == 0;
            tell("vlan " + name + " " + vlan + (at.tagged[vid] ? " tagged" : " untagged"));
            break;
        case 4:
            if (below(4) != 0)
                break;
            at.member[vid] = false;
            tell("novlan " + name + " " + vlan);
            std::erase_if(model.places, [&](const auto &place) {
                return place.first.second == vid && place.second.port == port;
            });
            break;
        case 5:
            model.now += below(20000);
            userlevel::clock_stop(1000 + model.now);
            chip_tick();
            break;
        }
    }

    void send_one(int step) {
        u32 from = below(PORTS), source = below(HOSTS), destination = below(HOSTS + 2);
        u32 tag = below(2) == 0 ? 0 : 1 + below(VLANS);
        bool floods = destination >= HOSTS; // to all
        Frame bare = Frame()
                         .from(address(source))
                         .to(floods ? "ff:ff:ff:ff:ff:ff" : address(destination))
                         .bytes({step >> 8 & 0xFF, step & 0xFF})
                         .padded();
        Frame with_tag = Frame(bare).padded(64);
        Bytes frame = tag != 0 ? Bytes(Frame(with_tag).tag(static_cast<u16>(tag))) : Bytes(bare);
        receive(101 + from, frame);

        u32 vid = tag != 0 ? tag : model.ports[from].pvid;
        bool accepted = model.ports[from].up && vid != 0 && model.ports[from].member[vid];
        std::set<u32> expected = model.forward(from, source, destination, tag);
        Bytes tagged = Frame(with_tag).tag(static_cast<u16>(vid));
        for (u32 port = 0; port < PORTS; port++) {
            Frames out = sent(101 + port);
            ASSERT_EQ(out.size(), expected.contains(port)) << "step " << step << " port " << port;
            for (const Bytes &left : out)
                ASSERT_EQ(left, model.ports[port].tagged[vid] ? tagged : Bytes(bare));
        }
        bool to_cpu = accepted && (floods || destination == 0);
        ASSERT_EQ(home.trapped.size(), to_cpu) << "step " << step;
        for (const Trapped &one : trapped()) {
            ASSERT_EQ(one.bytes, frame);
            ASSERT_EQ(one.vid, vid);
        }
    }

    Model model;
    std::mt19937 random{20261121};
};

TEST_F(RandomFrames, go_where_the_model_says) {
    userlevel::clock_stop(1000);
    for (int step = 0; step < STEPS && !HasFatalFailure(); step++) {
        if (below(20) == 0)
            change_something();
        send_one(step);
    }
    unsigned long received = 0;
    for (u32 ifindex = 101; ifindex <= 104; ifindex++) {
        received += counter(ifindex, "rx");
        EXPECT_GT(counter(ifindex, "moved"), 1000u);
        EXPECT_GT(counter(ifindex, "drop-vlan"), 1000u);
        EXPECT_GT(counter(ifindex, "drop-link"), 1000u);
    }
    EXPECT_EQ(received, STEPS);
    EXPECT_GT(hits("broadcast"), 1000u);
    EXPECT_GT(hits("own-other"), 1000u);
}
