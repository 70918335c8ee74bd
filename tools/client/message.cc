#include "client/message.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <tarn/tarnfwd_nl.h>

namespace client {

namespace {

constexpr std::size_t HEADERS = NLMSG_HDRLEN + GENL_HDRLEN;

nlmsghdr *header(Bytes &wire) {
    return reinterpret_cast<nlmsghdr *>(wire.data());
}

// Headers of the kernel are read by copying: a received buffer is aligned for nothing.
template <typename T>
T head_of(View bytes) {
    T head{};
    std::memcpy(&head, bytes.data(), std::min(bytes.size(), sizeof(head)));
    return head;
}

std::size_t align(std::size_t length) {
    return (length + 3) & ~std::size_t{3};
}

std::string text_of(View value) {
    auto end = std::find(value.begin(), value.end(), std::uint8_t{0});
    return {value.begin(), end};
}

// Which attribute of the message stands at the offset.
std::optional<std::uint16_t> attribute_at(View sent, std::size_t offset) {
    for (std::size_t at = HEADERS; at + NLA_HDRLEN <= sent.size();) {
        nlattr head = head_of<nlattr>(sent.subspan(at));
        std::size_t length = std::max<std::size_t>(head.nla_len, NLA_HDRLEN);
        if (offset >= at && offset < at + length)
            return head.nla_type & NLA_TYPE_MASK;
        at += align(length);
    }
    return std::nullopt;
}

// Behind the error stands the header that it answers and, unless it is capped, all of the message.
View told_with(const Received &received) {
    std::size_t behind = sizeof(nlmsgerr);
    if (!(received.flags & NLM_F_ACK_TLVS) || received.payload.size() < behind)
        return {};
    auto error = head_of<nlmsgerr>(received.payload);
    if (!(received.flags & NLM_F_CAPPED) && error.error != 0)
        behind += align(std::max<std::size_t>(error.msg.nlmsg_len, NLMSG_HDRLEN)) - NLMSG_HDRLEN;
    return behind < received.payload.size() ? received.payload.subspan(behind) : View{};
}

} // namespace

Message::Message(std::uint8_t command) : wire_(HEADERS) {
    mnl_nlmsg_put_header(wire_.data());
    auto *genl = static_cast<genlmsghdr *>(mnl_nlmsg_put_extra_header(header(wire_), GENL_HDRLEN));
    genl->cmd = command;
    genl->version = TARNFWD_NL_VERSION;
}

Message &Message::bytes(std::uint16_t attribute, View value) {
    wire_.resize(align(wire_.size()) + MNL_ATTR_HDRLEN + align(value.size()));
    mnl_attr_put(header(wire_), attribute, value.size(), value.data());
    return *this;
}

Message &Message::u8(std::uint16_t attribute, std::uint8_t value) {
    return bytes(attribute, {&value, 1});
}

Message &Message::u16(std::uint16_t attribute, std::uint16_t value) {
    return bytes(attribute, {reinterpret_cast<const std::uint8_t *>(&value), sizeof(value)});
}

Message &Message::u32(std::uint16_t attribute, std::uint32_t value) {
    return bytes(attribute, {reinterpret_cast<const std::uint8_t *>(&value), sizeof(value)});
}

Message &Message::text(std::uint16_t attribute, std::string_view value) {
    std::string terminated(value);
    return bytes(attribute, {reinterpret_cast<const std::uint8_t *>(terminated.c_str()),
                             terminated.size() + 1});
}

std::uint8_t Message::command() const {
    return head_of<genlmsghdr>(View(wire_).subspan(NLMSG_HDRLEN)).cmd;
}

void Message::address(std::uint16_t family, std::uint16_t flags, std::uint32_t sequence) {
    nlmsghdr *head = header(wire_);
    head->nlmsg_type = family;
    head->nlmsg_flags = flags;
    head->nlmsg_seq = sequence;
}

View Message::attributes() const {
    return View(wire_).subspan(HEADERS);
}

std::uint32_t Attribute::number_value() const {
    switch (value.size()) {
    case 0:
        return 0;
    case 1:
        return value[0];
    case 2:
    case 3:
        return head_of<std::uint16_t>(value);
    default:
        return head_of<std::uint32_t>(value);
    }
}

std::vector<Attribute> attributes_of(View bytes) {
    std::vector<Attribute> attributes;
    while (bytes.size() >= NLA_HDRLEN) {
        nlattr head = head_of<nlattr>(bytes);
        if (head.nla_len < NLA_HDRLEN || head.nla_len > bytes.size())
            break;
        attributes.push_back({static_cast<std::uint16_t>(head.nla_type & NLA_TYPE_MASK),
                              bytes.subspan(NLA_HDRLEN, head.nla_len - NLA_HDRLEN)});
        bytes = bytes.subspan(std::min(bytes.size(), align(head.nla_len)));
    }
    return attributes;
}

std::vector<Received> messages_of(View bytes) {
    std::vector<Received> messages;
    while (bytes.size() >= NLMSG_HDRLEN) {
        nlmsghdr head = head_of<nlmsghdr>(bytes);
        if (head.nlmsg_len < NLMSG_HDRLEN || head.nlmsg_len > bytes.size())
            break;
        messages.push_back({head.nlmsg_type, head.nlmsg_flags, head.nlmsg_seq,
                            bytes.subspan(NLMSG_HDRLEN, head.nlmsg_len - NLMSG_HDRLEN)});
        bytes = bytes.subspan(std::min(bytes.size(), align(head.nlmsg_len)));
    }
    return messages;
}

std::optional<Answer> answer_of(const Received &received, View sent) {
    if (received.type != NLMSG_ERROR || received.payload.size() < sizeof(int))
        return std::nullopt;
    Answer answer{.error = head_of<nlmsgerr>(received.payload).error, .text = {}};
    for (const Attribute &told : attributes_of(told_with(received))) {
        if (told.number == NLMSGERR_ATTR_MSG)
            answer.text = text_of(told.value);
        else if (told.number == NLMSGERR_ATTR_OFFS)
            answer.about = attribute_at(sent, told.number_value());
        else if (told.number == NLMSGERR_ATTR_MISS_TYPE)
            answer.missing = static_cast<std::uint16_t>(told.number_value());
    }
    return answer;
}

std::optional<Event> event_of(const Received &received, std::uint16_t family) {
    if (received.type != family || received.payload.size() < GENL_HDRLEN)
        return std::nullopt;
    View behind = received.payload.subspan(GENL_HDRLEN);
    return Event{head_of<genlmsghdr>(received.payload).cmd, {behind.begin(), behind.end()}};
}

} // namespace client
