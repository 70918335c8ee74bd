// Parts of a frame in words.
#pragma once

#include "replay/replay.h"

namespace replay {

// Missing bytes are 0.
std::string mac_text(const CapturedFrame &frame, std::size_t offset);

inline std::string source_text(const CapturedFrame &frame) {
    return mac_text(frame, 6);
}
inline std::string destination_text(const CapturedFrame &frame) {
    return mac_text(frame, 0);
}

// "slow protocols"; "802.3 length, LLC 0x42 spanning tree"; "" for a type without a name.
std::string type_text(const Outcome &outcome);

} // namespace replay
