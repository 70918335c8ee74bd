// What one would use instead of the chain of redirects: a compiled packet filter for each protocol,
// one run after another in the order of the chain, until one accepts the frame.
//
// They know the bytes of the frame alone: nothing of its port, its VLAN, its rate, or who listens.
#pragma once

#include "kernel/types.h"
#include "support/frame_builder.h"

#include <cstdio>
#include <cstdlib>
#include <pcap/pcap.h>
#include <vector>

class ProtocolFilters {
public:
    ProtocolFilters() {
        pcap_t *ethernet = pcap_open_dead(DLT_EN10MB, 65535);
        for (const char *text : TEXTS)
            programs_.push_back(compiled(ethernet, text));
        pcap_close(ethernet);
    }
    ~ProtocolFilters() {
        for (bpf_program &one : programs_)
            pcap_freecode(&one);
    }
    ProtocolFilters(const ProtocolFilters &) = delete;
    ProtocolFilters &operator=(const ProtocolFilters &) = delete;

    // How many were asked.
    i64 ask(const Bytes &frame) const {
        pcap_pkthdr header{};
        header.caplen = header.len = static_cast<bpf_u_int32>(frame.size());
        i64 asked = 0;
        for (const bpf_program &one : programs_) {
            asked++;
            if (pcap_offline_filter(&one, &header, frame.data()) != 0)
                break;
        }
        return asked;
    }

private:
    static constexpr const char *TEXTS[] = {
        "ether proto 0x88f7",                                        // ptp
        "ip and ip[6:2] & 0x3fff != 0",                              // dos
        "ether[6] & 1 != 0 or (ether[6:4] = 0 and ether[10:2] = 0)", // l2drop
        "ether proto 0x9000",                                        // testd
        "ether dst 01:80:c2:00:00:0e and ether proto 0x88cc",        // lldp
        "ether dst 00:0c:25:0a:8c:01",                               // befd
        "ether dst 01:80:c2:00:00:00",                               // stp
        "ether proto 0x8892",                                        // profinet
        "ether[0:4] = 0x01154e00 and ether[4] = 0",                  // mrp
        "ether dst 01:80:c2:00:00:02",                               // lacp
        "ether dst 01:00:0c:cc:cc:cc",                               // udld
        "ether dst 00:e0:2b:00:00:04",                               // ryke
        "ether proto 0x8902",                                        // cfm
        "ip6 dst host ff02::13",                                     // grasp
        "ether dst 00:00:f4:27:71:01",                               // ldf
        "ether dst 01:80:c2:00:00:21",                               // garp
        "ether dst 01:00:5e:01:02:04",                               // mcdrop, of a listed group
        "ip proto 103 or ip6 proto 103",                             // pim
        "ip proto 112 or ip6 proto 112",                             // vrrp
        "ip",
        "ip6",
        "arp",
        "rarp",
        "ether proto 0x8863 or ether proto 0x8864", // pppoe
    };

    static bpf_program compiled(pcap_t *ethernet, const char *text) {
        bpf_program made{};
        if (pcap_compile(ethernet, &made, text, 1, PCAP_NETMASK_UNKNOWN) == 0)
            return made;
        std::fprintf(stderr, "filter '%s': %s\n", text, pcap_geterr(ethernet));
        std::abort();
    }

    std::vector<bpf_program> programs_;
};
