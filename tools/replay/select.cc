#include "replay/select.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fmt/format.h>
#include <pcap/pcap.h>
#include <sstream>

namespace replay {

namespace {

constexpr int LONGEST_FRAME = 262144;

std::size_t number_of(const std::string &word, const std::string &words) {
    std::size_t number = 0;
    auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc{} || end != word.data() + word.size() || number == 0)
        throw SelectError(
            fmt::format("'{}' are no frames: write them as 7, 10-20, 100- or 3,5,9-12", words));
    return number;
}

} // namespace

FrameRanges::FrameRanges(const std::string &words) {
    std::istringstream parts(words);
    for (std::string part; std::getline(parts, part, ',');) {
        std::size_t dash = part.find('-');
        std::size_t first = number_of(part.substr(0, dash), words);
        std::size_t last = dash == std::string::npos ? first
                           : dash + 1 == part.size() ? SIZE_MAX
                                                     : number_of(part.substr(dash + 1), words);
        if (last < first)
            throw SelectError(fmt::format("'{}' ends before it begins", part));
        ranges_.push_back({first, last});
    }
}

bool FrameRanges::has(std::size_t number) const {
    return ranges_.empty() || std::any_of(ranges_.begin(), ranges_.end(), [&](const Range &one) {
               return number >= one.first && number <= one.last;
           });
}

bool FrameRanges::ends_before(std::size_t number) const {
    return !ranges_.empty() && std::all_of(ranges_.begin(), ranges_.end(),
                                           [&](const Range &one) { return one.last < number; });
}

PacketFilter::PacketFilter(const std::string &words) {
    if (words.empty())
        return;
    pcap_t *ethernet = pcap_open_dead(DLT_EN10MB, LONGEST_FRAME);
    program_ = std::make_unique<bpf_program>();
    bool good = pcap_compile(ethernet, program_.get(), words.c_str(), 1, PCAP_NETMASK_UNKNOWN) == 0;
    std::string wrong = good ? "" : pcap_geterr(ethernet);
    pcap_close(ethernet);
    if (!good)
        throw SelectError(fmt::format("'{}' is no filter: {}", words, wrong));
}

PacketFilter::~PacketFilter() {
    if (program_)
        pcap_freecode(program_.get());
}

bool PacketFilter::passes(const CapturedFrame &frame) const {
    if (!program_)
        return true;
    const pcap_pkthdr header{
        .ts = {}, .caplen = static_cast<bpf_u_int32>(frame.bytes.size()), .len = frame.length};
    return pcap_offline_filter(program_.get(), &header, frame.bytes.data()) != 0;
}

} // namespace replay
