// Random commands to the core, and random frames into the chip: each frame leaves by exactly the
// ports that the core's records let it leave by. The model reads the records themselves, so that a
// change of which the chip was not told shows.
#include "core_on_chip.h"
#include "ifmgr/tarn_ifmgr_create.h"
#include "ifmgr/tarn_ifmgr_link.h"
#include "ifmgr/tarn_ifmgr_settings.h"

#include <random>
#include <set>

namespace {

constexpr int STEPS = 40000;
constexpr u32 LAGS = 2, FIRST_LAG = 4501, VLANS = 3, INSTANCES = 2, ROUTED_VID = 4000, SENT = 0x2;

struct Held {
    tarn_if *ifp;
    explicit Held(u32 ifindex) : ifp(tarn_ifmgr_lookup_by_index(ifindex)) {}
    ~Held() { tarn_ifmgr_if_ref_put(ifp); }
    Held(const Held &) = delete;
};

bool bit(const u32 *bitmap, u32 vid) {
    return bitmap[vid / 32] >> vid % 32 & 1;
}

// What the records say of one port of the chip.
struct Port {
    bool known = false, up = false, runs = false, routed = false, filters = false;
    u32 pvid = 0, routed_vid = 0, lag = 0;
    std::array<bool, VLANS + 1> member{}, tagged{}, disabled{};
    std::array<u32, INSTANCES> stp{};

    explicit Port(u32 ifindex) {
        Held held(ifindex);
        if (!held.ifp)
            return;
        const tarn_if *own = held.ifp, *above = tarn_ifmgr_logical_port(held.ifp);
        if (above->if_flags & TARN_IF_F_DELETED)
            above = own;
        known = true;
        lag = above != own ? above->ifindex : 0;
        up = own->flags & IFF_UP;
        runs = up && (lag == 0 || ((own->flags & IFF_RUNNING) && (above->flags & IFF_RUNNING)));
        const tarn_if *router = above->if_flags & TARN_IF_F_L3_SWITCHPORT ? above : own;
        routed = router->if_flags & TARN_IF_F_L3_SWITCHPORT;
        routed_vid = routed ? router->vid : 0;
        filters = own->ingress_filter || above->ingress_filter;
        pvid = own->default_pvid ? own->default_pvid : above->default_pvid;
        for (u32 vid = 1; vid <= VLANS; vid++) {
            bool itself = bit(own->vlan_member_bmp, vid);
            member[vid] = itself || bit(above->vlan_member_bmp, vid);
            tagged[vid] = bit((itself ? own : above)->vlan_tagged_bmp, vid);
            disabled[vid] = bit(own->vlan_disabled_bmp, vid) || bit(above->vlan_disabled_bmp, vid);
        }
        for (u32 instance = 0; instance < INSTANCES; instance++)
            stp[instance] = above->stp_state[instance];
    }
};

class FollowRandom : public CoreOnChip {
protected:
    u32 below(u32 limit) { return std::uniform_int_distribution<u32>(0, limit - 1)(random); }
    bool mostly() { return below(4) != 0; }

    u32 any_port() { return 5001 + below(PORTS); }
    u32 any_of_all() { return mostly() ? any_port() : FIRST_LAG + below(LAGS); }

    void set_flags(u32 ifindex) {
        Held held(ifindex);
        if (!held.ifp)
            return;
        u32 old = held.ifp->flags;
        u32 flags = (mostly() ? IFF_UP : 0) | (mostly() ? IFF_RUNNING : 0);
        write_once(held.ifp->flags, flags);
        tarn_ifmgr_L2_link_state_check(held.ifp, (old & TARN_IF_LINK) == TARN_IF_LINK);
    }

    void remove(u32 ifindex) {
        tarn_if *ifp = tarn_ifmgr_lookup_by_index(ifindex);
        if (!ifp)
            return;
        tarn_ifmgr_if_ref_put(ifp);
        tarn_ifmgr_delete_interface(ifp);
    }

    // There, forwarding and a member again, so that there is something to lose.
    void add_port_again(u32 ifindex) {
        const u8 mac[6] = {2, 0, 0, 0, 1, static_cast<u8>(ifindex)};
        std::string name = "port" + std::to_string(ifindex - 5000);
        tarn_ifmgr_switchport_create(name.c_str(), mac, IFF_UP | IFF_RUNNING, 0, ifindex, 0);
        make_useful(ifindex);
    }

    void make_useful(u32 ifindex) {
        for (u32 instance = 0; instance < INSTANCES; instance++)
            tarn_ifmgr_stp_port_state_set(ifindex, instance, TARN_STP_FORWARDING);
        for (u32 vid = 1; vid <= VLANS; vid++)
            tarn_vlan_add_vlan_to_port(ifindex, vid, below(2));
        tarn_vlan_set_default_pvid(ifindex, static_cast<u16>(1 + below(VLANS)));
    }

    void add_lag(u32 ifindex) {
        const u8 mac[6] = {2, 0, 0, 0, 2, static_cast<u8>(ifindex)};
        std::string name = "lag" + std::to_string(ifindex - 4500);
        tarn_ifmgr_aggregator_add(name.c_str(), mac,
                                  below(2) ? TARN_AGG_TYPE_STATIC : TARN_AGG_TYPE_DYNAMIC, ifindex);
        make_useful(ifindex);
    }

    void detach(u32 ifindex) {
        Held port(ifindex);
        if (!port.ifp)
            return;
        Held lag(tarn_ifmgr_logical_port(port.ifp)->ifindex);
        if (lag.ifp && lag.ifp != port.ifp)
            tarn_ifmgr_aggregator_port_detach(lag.ifp, port.ifp);
    }

    void vlans_of_port(u32 ifindex, u32 vid) {
        u32 bitmap[TARN_VLAN_COUNT / 32] = {};
        bitmap[0] = below(16) & ~1u;
        switch (below(8)) {
        case 0:
            tarn_vlan_delete_vlan_from_port(ifindex, vid);
            break;
        case 1:
            tarn_vlan_delete_vlan_from_port_bulk(ifindex, bitmap);
            break;
        case 2:
            tarn_vlan_set_vlan_port_disabled(ifindex, vid, !mostly());
            break;
        case 3:
            tarn_vlan_set_vlan_port_disabled_bmp(ifindex, bitmap, below(2));
            break;
        case 4:
            tarn_vlan_set_vlan_port_disable_all(ifindex, !mostly());
            break;
        case 5:
            tarn_vlan_add_vlan_to_port_bulk(ifindex, bitmap, below(2));
            break;
        default:
            tarn_vlan_add_vlan_to_port(ifindex, vid, below(2));
        }
    }

    void change_something() {
        u32 ifindex = any_of_all(), vid = 1 + below(VLANS);
        switch (below(15)) {
        case 0:
            return set_flags(ifindex);
        case 1:
            tarn_vlan_set_default_pvid(ifindex, static_cast<u16>(below(VLANS + 1)));
            return;
        case 2:
            tarn_vlan_set_ingress_filter(ifindex, static_cast<u8>(below(2)));
            return;
        case 3:
        case 4:
        case 5:
            return vlans_of_port(ifindex, vid);
        case 6:
            tarn_ifmgr_stp_port_state_set(ifindex, below(INSTANCES), mostly() ? 3 : below(5));
            return;
        case 7:
            tarn_ifmgr_stp_vlan_inst_add(below(INSTANCES), vid);
            return;
        case 8:
            if (has_lags)
                tarn_ifmgr_aggregator_port_attach(FIRST_LAG + below(LAGS), any_port());
            return;
        case 9:
            return detach(any_port());
        case 10:
            tarn_ifmgr_l3_switchport_set(any_port(), mostly() ? 0 : ROUTED_VID);
            return;
        case 11:
            return below(3) ? add_port_again(any_port()) : remove(any_port());
        case 12:
            if (below(4) != 0)
                plain_switch::add_vlan(vid);
            else
                remove(TARN_IF_VLAN_BASE + vid);
            return;
        case 13:
            return has_mirrors ? change_mirrors() : void();
        default:
            if (u32 lag = FIRST_LAG + below(LAGS); !has_lags)
                return;
            else if (below(3) != 0)
                add_lag(lag);
            else
                remove(lag);
        }
    }

    void change_mirrors() {
        u32 source = any_of_all();
        if (mostly())
            tarn_ifmgr_set_portmirror(any_of_all(), source, SENT, 0);
        else
            tarn_ifmgr_unset_portmirror(0, source, SENT, 0);
    }

    void change_the_chip() {
        u32 k = 1 + below(PORTS);
        std::string number = std::to_string(5000 + k);
        tell("noport " + number);
        tell("port " + number + " " + device(k));
    }

    // By which ports a flood may leave, each aggregator's among them once.
    std::set<std::set<u32>> expect(u32 from, u32 tag) {
        std::vector<Port> ports;
        for (u32 k = 0; k <= PORTS; k++)
            ports.emplace_back(5000 + k);
        const Port &in = ports[from];
        u32 vid = tag != 0 ? tag : in.routed ? in.routed_vid : in.pvid;
        Held vlan(TARN_IF_VLAN_BASE + vid);
        if (!in.known || !in.runs || in.routed || vid == 0 || vid > VLANS || !vlan.ifp)
            return {};
        u32 instance = vlan.ifp->stp_instance;
        if ((!in.member[vid] && in.filters) || in.disabled[vid] || in.stp[instance] != 3)
            return {};
        std::map<u32, std::set<u32>> out; // by port, or by aggregator
        for (u32 k = 1; k <= PORTS; k++) {
            const Port &port = ports[k];
            bool echo = k == from || (port.lag != 0 && port.lag == in.lag);
            if (port.known && port.runs && !port.routed && !echo && port.member[vid] &&
                !port.disabled[vid] && port.stp[instance] == 3)
                out[port.lag != 0 ? port.lag : 5000 + k].insert(k);
        }
        std::set<std::set<u32>> groups;
        for (const auto &[ifindex, members] : out)
            groups.insert(members);
        return groups;
    }

    // How many copies of the frame each port sends, with those for who watches.
    std::array<u32, PORTS + 1> with_copies(const std::set<std::set<u32>> &groups, u32 vid) {
        std::array<u32, PORTS + 1> counts{};
        Held vlan(TARN_IF_VLAN_BASE + vid);
        for (const std::set<u32> &members : groups) {
            u32 at = *members.begin();
            counts[at]++;
            for (u32 depth = 0; depth < 8; depth++) {
                u32 target = Held(5000 + at).ifp->mirror_ifindex;
                Port watcher(target);
                bool sends = watcher.known && watcher.runs &&
                             (watcher.routed || watcher.stp[vlan.ifp->stp_instance] == 3);
                if (!sends)
                    break;
                at = target - 5000;
                counts[at]++;
            }
        }
        return counts;
    }

    void watch_one(int step) {
        u32 from = 1 + below(PORTS), tag = below(VLANS + 2);
        Frame frame = Frame().from("02:00:00:00:07:07").to(BROADCAST);
        if (tag != 0)
            frame.tag(static_cast<u16>(tag));
        frame.type(0x88B5).padded(64);
        auto expected = with_copies(expect(from, tag), tag != 0 ? tag : Port(5000 + from).pvid);
        home.sent.clear();
        receive(from, frame);
        for (u32 k = 1; k <= PORTS; k++) {
            std::size_t copies = sent(k).size();
            watched += copies > 1;
            ASSERT_EQ(copies, expected[k])
                << "step " << step << " in by " << from << " out by " << k << "\n"
                << describe();
        }
    }

    static std::string describe() {
        std::string text = userlevel::proc_read("tarn/ifdb").text;
        text += tell("show ports") + tell("show vlans");
        for (u32 k = 1; k <= PORTS; k++) {
            Port port(5000 + k);
            text += std::to_string(k) + ": runs " + std::to_string(port.runs) + " filters " +
                    std::to_string(port.filters) + " lag " + std::to_string(port.lag) + " routed " +
                    std::to_string(port.routed_vid);
            for (u32 state : port.stp)
                text += " stp " + std::to_string(state);
            for (u32 vid = 1; vid <= VLANS; vid++)
                text += " vlan " + std::to_string(vid) + (port.member[vid] ? " member" : "") +
                        (port.disabled[vid] ? " disabled" : "");
            text += "\n";
        }
        for (u32 vid = 1; vid <= VLANS; vid++)
            if (Held vlan(TARN_IF_VLAN_BASE + vid); vlan.ifp)
                text += "vlan " + std::to_string(vid) + " instance " +
                        std::to_string(vlan.ifp->stp_instance) + "\n";
        return text;
    }

    void send_one(int step) {
        u32 from = 1 + below(PORTS), tag = below(VLANS + 2);
        char host[18];
        std::snprintf(host, sizeof(host), "02:00:00:00:07:%02x", below(32));
        // A flood, an address that nobody has, or that of a host.
        u32 kind = below(3);
        char far[18];
        std::snprintf(far, sizeof(far), "02:00:00:00:07:%02x", below(32));
        Frame frame = Frame().from(host).to(kind == 0   ? BROADCAST
                                            : kind == 1 ? "02:00:00:00:09:09"
                                                        : far);
        if (tag != 0)
            frame.tag(static_cast<u16>(tag));
        frame.type(0x88B5).padded(64);
        home.sent.clear();
        std::set<std::set<u32>> groups = expect(from, tag);
        receive(from, frame);
        for (const std::set<u32> &members : groups) {
            std::size_t copies = 0;
            for (u32 k : members)
                copies += sent(k).size();
            flooded += copies;
            if (kind != 2)
                ASSERT_EQ(copies, 1u)
                    << "step " << step << " in by " << from << " tag " << tag << "\n"
                    << describe();
            else
                ASSERT_LE(copies, 1u) << "step " << step << " in by " << from << " tag " << tag;
        }
        ASSERT_EQ(senders(), "") << "step " << step << " in by " << from << " tag " << tag << "\n"
                                 << describe();
    }

    std::mt19937 random{20261121};
    std::size_t flooded = 0, watched = 0;
    bool has_lags = true, has_mirrors = false;
};

TEST_F(FollowRandom, nothing_passes_but_what_the_core_lets_pass) {
    for (u32 vid = 2; vid <= VLANS; vid++)
        plain_switch::add_vlan(vid);
    for (int step = 0; step < STEPS && !HasFatalFailure(); step++) {
        if (below(8) == 0)
            change_something();
        if (below(32) == 0)
            make_useful(any_of_all());
        if (below(200) == 0)
            change_the_chip();
        if (below(3) == 0)
            userlevel::work_run();
        send_one(step);
    }
    EXPECT_GT(flooded, STEPS / 8u);
    records_stay();
}

TEST_F(FollowRandom, who_watches_sees_what_leaves_and_no_more) {
    has_lags = false;
    has_mirrors = true;
    for (u32 vid = 2; vid <= VLANS; vid++)
        plain_switch::add_vlan(vid);
    for (int step = 0; step < STEPS && !HasFatalFailure(); step++) {
        if (below(8) == 0)
            change_something();
        if (below(32) == 0)
            make_useful(any_port());
        if (below(200) == 0)
            change_the_chip();
        if (below(3) == 0)
            userlevel::work_run();
        watch_one(step);
    }
    EXPECT_GT(watched, STEPS / 50u);
    records_stay();
}

// What a driver would know that reads again when it is told, and at no other time.
struct Reader {
    struct Read {
        i32 result = -1;
        rxtx_follow_port port{};
        rxtx_follow_vlans vlans{};
        std::array<i32, INSTANCES> stp{};
        std::string text() const {
            char line[300];
            std::snprintf(
                line, sizeof(line),
                "%d up %u running %u filter %u routed %u pvid %u vid %u aggregator %u mirror %u "
                "name %s mac %u "
                "members %x tagged %x disabled %x stp %d %d",
                result, port.up, port.running, port.ingress_filter, port.routed, port.pvid,
                port.routed_vid, port.aggregator, port.mirror, port.name, port.mac[5], vlans.member,
                vlans.tagged, vlans.disabled, stp[0], stp[1]);
            return line;
        }
    };
    std::map<u32, Read> ports;
    std::map<u32, std::pair<i32, std::string>> vlans;

    static Read read(u32 ifindex) {
        Read now;
        now.result = rxtx_follow_port_get(ifindex, &now.port);
        rxtx_follow_vlans_get(ifindex, 1, &now.vlans);
        for (u32 instance = 0; instance < INSTANCES; instance++)
            now.stp[instance] = rxtx_follow_stp_get(ifindex, instance);
        return now;
    }
    static std::pair<i32, std::string> read_vlan(u32 vid) {
        rxtx_follow_vlan now{};
        i32 result = rxtx_follow_vlan_get(vid, &now);
        return {result, std::string(reinterpret_cast<const char *>(&now), sizeof(now))};
    }

    void port(u32 ifindex) {
        for (auto &[other, before] : ports)
            if (before.port.aggregator == ifindex)
                before = read(other);
        ports[ifindex] = read(ifindex);
    }
    // Of what is told only that is read, so that a call of the wrong kind does not help.
    void port_vlans(u32 ifindex) {
        for (auto &[other, before] : ports)
            if (other == ifindex)
                before.vlans = read(other).vlans;
    }
    void port_stp(u32 ifindex, u32 instance) {
        for (auto &[other, before] : ports)
            if (instance < INSTANCES && (other == ifindex || before.port.aggregator == ifindex))
                before.stp[instance] = read(other).stp[instance];
    }
};

Reader reader;

TEST_F(FollowRandom, every_change_of_what_can_be_read_is_told) {
    for (u32 vid = 2; vid <= VLANS; vid++)
        plain_switch::add_vlan(vid);
    const rxtx_follow_callbacks callbacks{
        .port = [](u32 ifindex) { reader.port(ifindex); },
        .port_vlans = [](u32 ifindex, u32, u32) { reader.port_vlans(ifindex); },
        .port_stp = [](u32 ifindex, u32 instance) { reader.port_stp(ifindex, instance); },
        .vlan = [](u32 vid) { reader.vlans[vid] = Reader::read_vlan(vid); }};
    has_mirrors = true;
    chip_stop();
    rxtx_follow_register(&callbacks);
    EXPECT_EQ(reader.ports.size(), PORTS);
    EXPECT_EQ(reader.vlans.size(), VLANS);
    for (int step = 0; step < STEPS && !HasFailure(); step++) {
        change_something();
        if (below(3) == 0)
            userlevel::work_run();
        if (below(4) == 0) {
            const u8 mac[6] = {2, 0, 0, 0, 3, static_cast<u8>(below(8))};
            tarn_ifmgr_set_hwaddr(below(2) ? any_port() : TARN_IF_VLAN_BASE + 1, 6, mac);
        }
        for (const auto &[ifindex, known] : reader.ports)
            EXPECT_EQ(known.text(), Reader::read(ifindex).text())
                << "step " << step << " of " << ifindex;
        for (const auto &[vid, known] : reader.vlans)
            EXPECT_EQ(known, Reader::read_vlan(vid)) << "step " << step << " of VLAN " << vid;
    }
    rxtx_follow_register(nullptr);
    records_stay();
    chip_start();
}

} // namespace
