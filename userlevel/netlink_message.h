// Messages of netlink, written into bytes: the headers, attributes and numbers of Linux 6.1.
#pragma once

#include "kernel/genl.h"

#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace userlevel {

struct nlmsghdr {
    u32 length; // with this header
    u16 type;
    u16 flags;
    u32 sequence;
    u32 portid;
};

struct genlmsghdr {
    u8 command;
    u8 version;
    u16 reserved;
};

inline constexpr u32 NLMSG_HDRLEN = sizeof(nlmsghdr);
inline constexpr u32 GENL_HDRLEN = sizeof(genlmsghdr);

inline constexpr u16 NLMSG_ERROR = 2;
inline constexpr u16 NLMSG_MIN_TYPE = 0x10;
inline constexpr u16 GENL_ID_CTRL = 0x10;

inline constexpr u16 NLM_F_REQUEST = 0x1;
inline constexpr u16 NLM_F_ACK = 0x4;
inline constexpr u16 NLM_F_ECHO = 0x8;
inline constexpr u16 NLM_F_DUMP = 0x300;
inline constexpr u16 NLM_F_CAPPED = 0x100;
inline constexpr u16 NLM_F_ACK_TLVS = 0x200;

inline constexpr u16 NLA_F_NESTED = 0x8000;
inline constexpr u16 NLA_TYPE_MASK = 0x3FFF;

constexpr u32 nl_align(u32 length) {
    return (length + 3) & ~3u;
}

class nl_writer {
public:
    explicit nl_writer(const nlmsghdr &header) { put(header); }

    template <typename Record>
    void put(const Record &record) {
        raw({reinterpret_cast<const u8 *>(&record), sizeof(record)});
    }
    // Filled up to the alignment.
    void raw(std::span<const u8> bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        bytes_.resize(nl_align(static_cast<u32>(bytes_.size())));
    }
    template <typename Value>
    void attribute(u16 type, const Value &value) {
        head(type, sizeof(value));
        put(value);
    }
    void text(u16 type, std::string_view value) {
        head(type, static_cast<u32>(value.size() + 1));
        std::vector<u8> with_end(value.begin(), value.end());
        with_end.push_back(0);
        raw(with_end);
    }
    std::size_t nest(u16 type) {
        std::size_t at = bytes_.size();
        head(type, 0);
        return at;
    }
    void nest_end(std::size_t at) {
        u16 length = static_cast<u16>(bytes_.size() - at);
        std::memcpy(&bytes_[at], &length, sizeof(length));
    }
    // The whole message.
    const std::vector<u8> &end() {
        u32 length = static_cast<u32>(bytes_.size());
        std::memcpy(bytes_.data(), &length, sizeof(length));
        return bytes_;
    }

private:
    void head(u16 type, u32 length) { put(nlattr{static_cast<u16>(NLA_HDRLEN + length), type}); }

    std::vector<u8> bytes_;
};

} // namespace userlevel
