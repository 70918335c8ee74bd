// The walk that visits only those who could want a frame, against the plain walk of the table.
//
// The plain walks stand here as they are meant: every redirect that is enabled and does not skip
// the class is called, and counted as it is called; so is every hook before classification. Both
// see the same random frames on the same switch, each in a process of its own, and must end with
// the same counters, decisions and messages.
//
// TARN_RANDOM_FRAMES sets how many frames (a million unless said otherwise, of which a sanitizer
// gets a tenth), TARN_RANDOM_SEED the seed.
#include "pkt/random_frames.h"

#include "memory.h"
#include "pkt/pkt_candidates.h"
#include "pkt/pkt_rx.h"

#include <regex>
#include <sys/wait.h>
#include <unistd.h>

namespace {

bool plainly = false;
bool compared = false;
u64 marks = 0;
u32 asked[REDIRECT_SLOTS] = {}, modified[REDIRECT_SLOTS] = {}; // how often, by the plain walks

u32 skip_bit(u32 ethertype) {
    switch (ethertype) {
    case 0x0806:
        return SKIP_ARP;
    case 0x0800:
        return SKIP_IPV4;
    case 0x86DD:
        return SKIP_IPV6;
    default:
        return 0;
    }
}

u32 plain_walk(tarn_pkt_info *info) {
    sk_buff *given = info->skb;
    redirect_instruct instruct{};
    info->order = process_packet_rxs.data();
    info->result = 0;
    for (const u8 *slot = info->order; *slot != REDIRECT_ORDER_END; slot++) {
        packet_redirect *redirect = packet_redirects[*slot];
        if (!redirect || !redirect->enabled ||
            (redirect->skip_protocols & skip_bit(info->ethertype)))
            continue;
        asked[*slot]++;
        redirect->match(info, &instruct);
        u32 result;
        if (instruct.flags == 0 || !tarn_pkt_carry_out(redirect, info, &instruct, &result))
            continue;
        tarn_ifmgr_if_ref_put(info->vlan_if);
        return result;
    }
    __dev_kfree_skb_irq(given, SKB_REASON_DROPPED);
    tarn_ifmgr_if_ref_put(info->vlan_if);
    return info->result;
}

void plain_modify_rx(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp, sk_buff *skb) {
    for (const u8 *slot = process_packet_modify_rx.data(); *slot != REDIRECT_ORDER_END; slot++) {
        packet_redirect *redirect = packet_redirects[*slot];
        if (!redirect || !redirect->enabled || !redirect->modify_rx)
            continue;
        modified[*slot]++;
        redirect->modify_rx(modify, meta, ifp, skb);
    }
}

} // namespace

#define MODIFY_RX "_Z18tarn_pkt_modify_rxP14tarn_rx_modifyPK12tarn_rx_metaP7tarn_ifP7sk_buff"
void modify_rx(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp,
               sk_buff *skb) asm("__wrap_" MODIFY_RX);
void real_modify_rx(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp,
                    sk_buff *skb) asm("__real_" MODIFY_RX);
void modify_rx(tarn_rx_modify *modify, const tarn_rx_meta *meta, tarn_if *ifp, sk_buff *skb) {
    (plainly ? plain_modify_rx : real_modify_rx)(modify, meta, ifp, skb);
}

u32 chain(tarn_pkt_info *info) asm("__wrap__Z14tarn_pkt_chainP13tarn_pkt_info");
u32 real_chain(tarn_pkt_info *info) asm("__real__Z14tarn_pkt_chainP13tarn_pkt_info");
u32 chain(tarn_pkt_info *info) {
    // What the hooks before it wrote on the frame.
    if (compared)
        marks = marks * 1099511628211u ^ (u64{skb_mark(info->skb)} << 8 | info->skb->icmp_trapped);
    return plainly ? plain_walk(info) : real_chain(info);
}

namespace {

class PlainWalk : public RandomFrames {
protected:
    // What a run over so many frames comes to, in words.
    std::string run(u64 frames) {
        userlevel::clock_stop(static_cast<unsigned long>(-10000)); // limits go by it
        add_interfaces();
        decide_anything();
        for (u64 i = 0; i < frames; i++) {
            userlevel::clock_advance(below(4));
            if (i % 64 == 0)
                change();
            note(std::to_string(offer()));
            if (i % 256 == 0)
                keep();
        }
        keep();
        for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++)
            enable_redirect(slot, 1); // of the others not all is printed
        if (plainly)
            take_plain_counts();
        std::string told = std::to_string(fingerprint_) + " " + std::to_string(marks) + "\n";
        for (u32 mode : {REDIRECT_COUNTERS_RX, REDIRECT_COUNTERS_MODIFY_RX})
            told += printed([=](seq_file *view) { print_redirect_counters(mode, view); });
        return told;
    }

    std::string run_in_a_process(bool plain, u64 frames) {
        int ends[2];
        if (pipe(ends) != 0)
            return "no pipe";
        pid_t child = fork();
        if (child == 0) {
            plainly = plain;
            compared = true;
            std::string told = run(frames);
            _exit(write(ends[1], told.data(), told.size()) == static_cast<ssize_t>(told.size())
                      ? 0
                      : 1);
        }
        close(ends[1]);
        std::string told;
        char part[4096];
        for (ssize_t got; (got = read(ends[0], part, sizeof(part))) > 0;)
            told.append(part, static_cast<std::size_t>(got));
        close(ends[0]);
        int status = 0;
        waitpid(child, &status, 0);
        return status == 0 ? told : "the process failed\n" + told;
    }

    // Whether a redirect ever did anything, by its printed counters.
    static bool acted(const std::string &counters, const std::string &name) {
        for (const char *what :
             {"stops", "userspace", "kernel", "kernel_port", "stack_rep", "flood_l2", "resend_l2"})
            if (std::regex_search(counters, std::regex("\n" + name + "_" + what + ": [1-9]")))
                return true;
        return false;
    }

private:
    // In place of what is summed up from where walks ended.
    static void take_plain_counts() {
        pkt_candidates_sum_up();
        for (u32 slot = 0; slot < REDIRECT_SLOTS; slot++)
            if (packet_redirect *redirect = packet_redirects[slot]) {
                redirect->inspects = asked[slot];
                redirect->modify_rx_inspects = modified[slot];
            }
    }

    void note(const std::string &word) {
        fingerprint_ = fingerprint_ * 1099511628211u ^ std::hash<std::string>{}(word);
    }

    void keep() {
        for (const std::string &call : calls().order)
            note(call);
        for (const std::string &line : log())
            note(line);
        forget_calls();
    }

    u64 fingerprint_ = 14695981039346656037u;
};

TEST_F(PlainWalk, comes_to_the_same) {
    const u64 frames =
        from_environment("TARN_RANDOM_FRAMES", userlevel::UNDER_ASAN ? 100000 : 1000000);
    std::string plain = run_in_a_process(true, frames);
    std::string fast = run_in_a_process(false, frames);
    EXPECT_EQ(plain, fast) << "seed " << seed_;

    // A fact that no frame has would be compared with nothing. Few frames do not reach everybody.
    EXPECT_THAT(plain, ::testing::ContainsRegex("_modify_rx_inspects: [1-9]"));
    for (const packet_redirect *redirect : packet_redirects)
        if (frames >= 1000000 && redirect && redirect->concerns != 0 &&
            !(redirect->concerns & FRAME_ANY)) {
            EXPECT_TRUE(acted(plain, redirect->name)) << redirect->name;
        }
}

} // namespace
