// Messages of the control family, as they stand on the wire, whatever carries them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace client {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

// One command: a netlink header, a generic netlink header and attributes in the order in which they
// are put. Its family, sequence number and length are the client's to fill in.
class Message {
public:
    explicit Message(std::uint8_t command);

    Message &u8(std::uint16_t attribute, std::uint8_t value);
    Message &u16(std::uint16_t attribute, std::uint16_t value);
    Message &u32(std::uint16_t attribute, std::uint32_t value);
    Message &text(std::uint16_t attribute, std::string_view value); // with its terminator
    Message &bytes(std::uint16_t attribute, View value);

    std::uint8_t command() const;
    void address(std::uint16_t family, std::uint16_t flags, std::uint32_t sequence);
    const Bytes &wire() const { return wire_; }
    // The attributes alone.
    View attributes() const;

private:
    Bytes wire_;
};

// What the longest attribute holds: its length is a 16-bit number, with the header.
inline constexpr std::size_t ATTRIBUTE_MAX = 0xFFFF - 4;

// One attribute of a received message.
struct Attribute {
    std::uint16_t number;
    View value;

    // A number in host byte order; missing bytes read as 0.
    std::uint32_t number_value() const;
};

// The attributes that are whole, in order.
std::vector<Attribute> attributes_of(View bytes);

// One message of the family, taken apart. None for bytes that hold no whole one.
struct Received {
    std::uint16_t type;
    std::uint16_t flags;
    std::uint32_t sequence;
    View payload; // behind the netlink header
};
std::vector<Received> messages_of(View bytes);

// What came of a command.
struct Answer {
    int error = 0;                           // 0, or negative: an errno or the switch's own number
    std::string text = {};                   // what the switch had to say with it
    std::optional<std::uint16_t> about = {}; // the attribute that it says it of
    std::optional<std::uint16_t> missing = {}; // the attribute that it says is missing
};
// `sent` is the message that is answered: the acknowledgement points into it.
std::optional<Answer> answer_of(const Received &received, View sent);

// An event, or any message of the family.
struct Event {
    std::uint8_t command = 0;
    Bytes storage; // of the attributes
    std::vector<Attribute> attributes() const { return attributes_of(storage); }
};
std::optional<Event> event_of(const Received &received, std::uint16_t family);

} // namespace client
