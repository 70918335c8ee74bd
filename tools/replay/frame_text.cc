#include "replay/frame_text.h"

#include "explain/words.h"
#include "pkt/frame.h"

#include <fmt/format.h>
#include <span>

namespace replay {

std::string mac_text(const CapturedFrame &frame, std::size_t offset) {
    std::string text;
    for (std::size_t i = offset; i < offset + ETH_ALEN; i++)
        text += fmt::format("{}{:02x}", i > offset ? ":" : "",
                            i < frame.bytes.size() ? frame.bytes[i] : 0);
    return text;
}

std::string type_text(const Outcome &outcome) {
    const tarn_pkt_info &info = outcome.trace.info;
    std::string type = explain::ethertype_words(info.ethertype);
    const std::size_t header = info.tag & TARN_TAG_PRESENT ? ETH_HLEN + VLAN_HLEN : ETH_HLEN;
    const std::vector<std::uint8_t> &bytes = outcome.frame.bytes;
    if (!explain::is_length(info.ethertype) || bytes.size() <= header)
        return type;
    std::string llc = explain::llc_words(std::span(bytes).subspan(header));
    return llc.empty() ? type : type + ", " + llc;
}

} // namespace replay
