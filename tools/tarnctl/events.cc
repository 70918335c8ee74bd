#include "tarnctl/events.h"

#include "client/attributes.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <tarn/tarnfwd_nl.h>

namespace tarnctl {

namespace {

using json = nlohmann::ordered_json;

struct Word {
    std::uint16_t attribute;
    std::uint32_t value;
    std::string_view word;
};

constexpr Word WORDS[] = {
    {TARNFWD_ATTR_FDB_EVENT, TARNFWD_FDB_NEW_SOURCE, "new-source"},
    {TARNFWD_ATTR_FDB_EVENT, TARNFWD_FDB_MOVED_SOURCE, "moved-source"},
    {TARNFWD_ATTR_FDB_EVENT, TARNFWD_FDB_DESTINATION, "destination"},
    {TARNFWD_ATTR_ARPSEC_REASON, TARNFWD_ARPSEC_NO_BINDING, "no-binding"},
    {TARNFWD_ATTR_ARPSEC_REASON, TARNFWD_ARPSEC_VLAN_MISMATCH, "vlan-mismatch"},
    {TARNFWD_ATTR_ARPSEC_REASON, TARNFWD_ARPSEC_PORT_MISMATCH, "port-mismatch"},
    {TARNFWD_ATTR_ARPSEC_REASON, TARNFWD_ARPSEC_MAC_MISMATCH, "mac-mismatch"},
};

std::string event_word(std::uint8_t command) {
    switch (command) {
    case TARNFWD_CMD_L2_FDB_ADD:
        return "fdb-add";
    case TARNFWD_CMD_DOS_MATCH:
        return "dos-match";
    case TARNFWD_CMD_DHCPSN_ARPSEC_VIOLATION:
        return "arp-violation";
    default:
        return fmt::format("event-{}", command);
    }
}

std::string lower(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return out;
}

std::string label_of(std::uint16_t number) {
    std::string_view name = client::attribute_info(number).name;
    return name.empty() ? fmt::format("attribute_{}", number) : lower(name);
}

std::string bytes_of(const client::Attribute &attribute) {
    client::View value = attribute.value;
    if (attribute.number == TARNFWD_ATTR_MAC && value.size() == 6)
        return fmt::format("{:02x}", fmt::join(value.begin(), value.end(), ":"));
    bool address = attribute.number == TARNFWD_ATTR_IPV4_ADDR ||
                   attribute.number == TARNFWD_ATTR_VXLAN_REMOTE_ADDR;
    if (address && value.size() == 4)
        return fmt::format("{}", fmt::join(value.begin(), value.end(), "."));
    return fmt::format("{:02x}", fmt::join(value.begin(), value.end(), ""));
}

json value_of(const client::Attribute &attribute) {
    client::Type type = client::attribute_info(attribute.number).type;
    if (type == client::Type::bytes || type == client::Type::none)
        return bytes_of(attribute);
    std::uint32_t value = attribute.number_value();
    for (const Word &row : WORDS)
        if (row.attribute == attribute.number && row.value == value)
            return row.word;
    if (attribute.number == TARNFWD_ATTR_ETHERTYPE)
        return fmt::format("0x{:04x}", value);
    return value;
}

json decoded(const client::Event &event, const Names &names) {
    json line{{"event", event_word(event.command)}};
    for (const client::Attribute &attribute : event.attributes()) {
        line[label_of(attribute.number)] = value_of(attribute);
        if (attribute.number != TARNFWD_ATTR_IFINDEX)
            continue;
        if (auto name = names.find(attribute.number_value()); name != names.end())
            line["interface"] = name->second;
    }
    return line;
}

} // namespace

std::string event_line(const client::Event &event, const Names &names) {
    std::string text;
    const json fields = decoded(event, names);
    for (const auto &[key, value] : fields.items()) {
        std::string shown = value.is_string() ? value.get<std::string>() : value.dump();
        text += key == "event" ? shown : fmt::format(" {} {}", key, shown);
    }
    return text + "\n";
}

std::string event_json(const client::Event &event, const Names &names) {
    return decoded(event, names).dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace tarnctl
