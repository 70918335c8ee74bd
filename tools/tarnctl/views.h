// Files of the proc tree as people and programs want to see them.
#pragma once

#include "tarnctl/proc.h"

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnctl {

// `file` as the table names it, such as "ifdb" or "{}/bridge".
std::string show_view(std::string_view file, const std::string &text, bool json);
std::string raw_view(const std::string &text, bool json);

// A table with a heading, as JSON: an object a row, its names those of the heading.
std::string table_json(const std::string &table);

struct Interface; // standing.h
// What the list says of one, with its flags in words.
nlohmann::ordered_json interface_record(const Interface &one);

// Flags of the machine's kind, and what those of a VLAN say.
struct FlagWord {
    unsigned long flag;
    std::string_view word;
};
std::span<const FlagWord> flag_words();
std::span<const FlagWord> vlan_flag_words();

std::map<std::string, std::uint32_t> interfaces_of(const std::string &ifdb);

struct Redirects {
    std::vector<std::string> enabled, disabled;
    bool is_enabled(const std::string &name) const;
    bool knows(const std::string &name) const;
    std::vector<std::string> all() const;
};
Redirects read_redirects(ProcTree &proc);
std::string show_redirects(const Redirects &redirects, bool json);

} // namespace tarnctl
