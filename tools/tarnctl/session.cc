#include "tarnctl/session.h"

#include "client/attributes.h"
#include "tarnctl/asking.h"
#include "tarnctl/help.h"
#include "tarnctl/monitor.h"
#include "tarnctl/show.h"
#include "tarnctl/text.h"
#include "tarnctl/views.h"

#include <algorithm>
#include <fmt/format.h>
#include <net/if.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <tarn/tarnfwd_nl.h>

namespace tarnctl {

namespace {

// What the switch answered, in words; the words were right.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// "{}/members" with the first value in place.
std::string filled(std::string_view form, const std::vector<std::string> &values) {
    std::string text(form);
    auto at = text.find("{}");
    return at == std::string::npos || values.empty() ? text : text.replace(at, 2, values[0]);
}

// The last value, for a row with a port and a value: "{}" of what is written.
std::string written(const Parsed &parsed) {
    auto last = parsed.values.empty() ? std::vector<std::string>{}
                                      : std::vector<std::string>{parsed.values.back()};
    return filled(parsed.row->value, last);
}

std::string refusal(const client::Answer &answer) {
    std::string text = client::error_words(answer.error);
    if (!answer.text.empty())
        text += fmt::format("; it says '{}'", answer.text);
    if (answer.about)
        text += fmt::format(" of the attribute {}", client::attribute_info(*answer.about).name);
    if (answer.missing)
        text += fmt::format("; the attribute {} is missing",
                            client::attribute_info(*answer.missing).name);
    return text;
}

std::uint32_t u32_of(const client::Message &message, std::uint16_t number) {
    for (const client::Attribute &attribute : client::attributes_of(message.attributes()))
        if (attribute.number == number)
            return attribute.number_value();
    return 0;
}

bool differ_in_interface(const std::vector<client::Message> &messages) {
    return std::any_of(messages.begin(), messages.end(), [&](const client::Message &one) {
        return u32_of(one, TARNFWD_ATTR_IFINDEX) != u32_of(messages[0], TARNFWD_ATTR_IFINDEX);
    });
}

std::string vlan_or_instance(const client::Message &message) {
    std::uint32_t vid = u32_of(message, TARNFWD_ATTR_VID_START);
    std::uint32_t end = u32_of(message, TARNFWD_ATTR_VID_END);
    if (end > vid + 1)
        return fmt::format(" (VLANs {}-{})", vid, end - 1);
    if (vid == 0)
        vid = u32_of(message, TARNFWD_ATTR_VID);
    std::uint32_t ifindex = u32_of(message, TARNFWD_ATTR_IFINDEX);
    if (vid == 0 && message.command() == TARNFWD_CMD_IF_DELETE_SVI)
        vid = ifindex - VLAN_IFINDEX_BASE;
    if (message.command() == TARNFWD_CMD_STP_SET_PORT_STATE)
        return fmt::format(" (instance {})", u32_of(message, TARNFWD_ATTR_STP_INSTANCE));
    return vid != 0 ? fmt::format(" (VLAN {})", vid) : "";
}

// Which of several commands it was, by what they differ in.
std::string which(const std::vector<client::Message> &messages, const client::Message &message) {
    if (messages.size() == 1)
        return "";
    std::string what = vlan_or_instance(message);
    if (what.empty() ||
        (message.command() != TARNFWD_CMD_IF_DELETE_SVI && differ_in_interface(messages)))
        what = fmt::format(" (interface {})", u32_of(message, TARNFWD_ATTR_IFINDEX)) + what;
    return what;
}

void remember(Session &session, const client::Message &message) {
    if (message.command() != TARNFWD_CMD_IF_NEWLINK)
        return;
    for (const client::Attribute &attribute : client::attributes_of(message.attributes())) {
        if (attribute.number != TARNFWD_ATTR_IF_NAME || attribute.value.empty())
            continue;
        std::string name(attribute.value.begin(), attribute.value.end() - 1);
        session.names[name] = u32_of(message, TARNFWD_ATTR_IFINDEX);
    }
}

// What is so already, on a line of its own.
void note(Session &session, const std::string &what) {
    session.already++;
    session.print(session.json ? nlohmann::json{{"already", what}}.dump() + "\n" : what + "\n");
}

// Every command is sent, whatever came of those before; the first refusal is the line's.
void send(Session &session, const Parsed &parsed) {
    client::Client &client = session.client();
    Standing standing(session);
    Plan planned = plan(standing, parsed, session.replace);
    for (const std::string &what : planned.already)
        note(session, fmt::format("{}: {}", parsed.row->words, what));
    std::string refused;
    for (const client::Message &message : planned.messages) {
        client::Answer answer = client.command(message);
        session.told++;
        if (answer.error == 0)
            remember(session, message);
        else if (refused.empty())
            refused = fmt::format("{}{}: {}", parsed.row->words, which(planned.messages, message),
                                  refusal(answer));
    }
    if (!planned.refused.empty())
        throw Refused(fmt::format("{}: {}", parsed.row->words, planned.refused[0]));
    if (!refused.empty())
        throw Refused(refused);
}

// With what may be meant, and what there is.
std::string no_such(const std::string &kind, const std::string &name,
                    const std::vector<std::string> &known, const std::string &there) {
    std::string meant = did_you_mean(name, known);
    return fmt::format("there is no {} '{}'{} are: {}", kind, name,
                       meant.empty() ? "; there" : meant + " There", there);
}

std::string no_interface(Session &session, const std::string &name,
                         const std::vector<std::string> &known) {
    return no_such("interface", name, known, Standing(session).names());
}

void must_know_redirect(const Redirects &redirects, const std::string &name) {
    if (!redirects.knows(name))
        throw Refused(no_such("redirect", name, redirects.all(),
                              fmt::format("{}", fmt::join(redirects.all(), " "))));
}

std::vector<std::string> names_listed(Session &session) {
    std::vector<std::string> names;
    for (const auto &[name, ifindex] : listed(session))
        names.push_back(name);
    return names;
}

// Where the switch lists none it may be that it cannot be asked.
void must_know_interface(Session &session, const std::string &name) {
    auto known = names_listed(session);
    if (!known.empty() && std::find(known.begin(), known.end(), name) == known.end())
        throw Refused(no_interface(session, name, known));
}

// A file of a port: of one that there is, and of a kind that has it.
void must_have(Session &session, const Subcommand &row, const std::vector<std::string> &values) {
    if (!row.file.starts_with("{}/"))
        return;
    const std::string &name = values[0];
    must_know_interface(session, name);
    Standing standing(session);
    const Interface *there = standing.interface(name);
    if (!there)
        return;
    if (there->vid() != 0)
        throw Refused(fmt::format("{}: {} is a VLAN, and no port or aggregator", row.words, name));
    if (row.file != "{}/members" || !there->children.empty())
        return;
    throw Refused(there->is_lag() ? fmt::format("{}: {} has no ports", row.words, name)
                                  : fmt::format("{}: {} is no aggregator", row.words, name));
}

void set_redirect(Session &session, const std::string &file, const std::string &name) {
    Redirects redirects = read_redirects(session.proc());
    must_know_redirect(redirects, name);
    bool on = file == "redirectprotocolenable";
    if (redirects.is_enabled(name) == on)
        return note(session, fmt::format("redirect {}: {} is already {}", on ? "enable" : "disable",
                                         name, on ? "enabled" : "disabled"));
    session.told++;
    session.proc().write(file, name + "\n");
    if (read_redirects(session.proc()).is_enabled(name) != on)
        throw Refused(fmt::format("the switch did not {} '{}'; the kernel log may say why",
                                  on ? "enable" : "disable", name));
}

void redirects(Session &session, const Parsed &parsed) {
    if (!parsed.row->file.empty())
        return set_redirect(session, std::string(parsed.row->file), parsed.values[0]);
    session.print(show_redirects(read_redirects(session.proc()), session.json));
}

// Of a switch that lists them.
void must_know_redirect(Session &session, const std::string &name) {
    Redirects redirects;
    try {
        redirects = read_redirects(session.proc());
    } catch (const ProcError &) {
        return;
    }
    must_know_redirect(redirects, name);
}

// "--port p1 --drops" means the same as "port p1 drops". What it names must be there, or nothing
// would ever be seen.
std::string trace_order(Session &session, const std::string &which) {
    std::string order = session.json ? "trace json" : "trace", before;
    for (std::string word : fields_of(which)) {
        bool is_name = before == "port" || before == "redirect";
        if (before == "port")
            must_know_interface(session, word);
        else if (before == "redirect")
            must_know_redirect(session, word);
        word = word.substr(!is_name && word.starts_with("--") ? 2 : 0);
        order += " " + word;
        before = is_name ? "" : word;
    }
    return order;
}

// Tells a line to the chip, whose own words stand behind "chip" in the row. A port that it has open
// on that device is left.
void chip(Session &session, const Parsed &parsed) {
    std::string line(parsed.row->words.substr(std::string_view("chip ").size()));
    for (const std::string &value : parsed.values)
        line += value.empty() ? "" : " " + value;
    auto fields = fields_of(line);
    if (fields.size() == 3 && fields[0] == "port") {
        Standing standing(session);
        const Chip *told = standing.chip();
        const ChipPort *port = told ? told->port(told->ifindex_of(fields[1])) : nullptr;
        if (port && port->device == fields[2])
            return note(session,
                        fmt::format("chip: port {} is already on {}", port->ifindex, port->device));
    }
    session.told++;
    session.print(session.chip(session.json ? "-j " + line : line));
}

void perform(Session &session, const Parsed &parsed) {
    const Subcommand &row = *parsed.row;
    switch (row.action) {
    case Action::message:
        return send(session, parsed);
    case Action::show: {
        must_have(session, row, parsed.values);
        std::string file = filled(row.file, parsed.values);
        return session.print(show_view(row.file, session.proc().read(file), session.json));
    }
    case Action::facts: {
        bool is_port = !row.arguments.empty() && row.arguments.back().kind == Kind::word;
        if (is_port && !parsed.values.back().empty())
            must_know_interface(session, parsed.values.back());
        return session.print(show_facts(session, std::string(row.file), parsed.values));
    }
    case Action::set:
        must_have(session, row, parsed.values);
        session.told++;
        return session.proc().write(filled(row.file, parsed.values), written(parsed));
    case Action::redirect:
        return redirects(session, parsed);
    case Action::proc_read:
        return session.print(raw_view(session.proc().read(parsed.values[0]), session.json));
    case Action::proc_write:
        return session.proc().write(parsed.values[0], parsed.values[1] + "\n");
    case Action::monitor:
        return monitor(session, std::stoul(parsed.values[0], nullptr, 0));
    case Action::sockets:
        return session.print(session.json ? table_json(session.sockets()) : session.sockets());
    case Action::trace:
        return session.follow(trace_order(session, parsed.values[0]));
    case Action::explain:
        return session.print(session.explain(fmt::format(
            "explain {}{} {}", session.json ? "json " : "", parsed.values[0], parsed.values[1])));
    case Action::chip:
        return chip(session, parsed);
    }
}

bool asks_for_help(const Words &words) {
    return !words.empty() &&
           (words.back() == "help" || words.back() == "--help" || words.front() == "help") &&
           words[0] != "chip" && words[0] != "proc";
}

Words without_help(Words words) {
    words.erase(words.front() == "help" ? words.begin() : words.end() - 1);
    return words;
}

std::uint32_t vlan_ifindex(const std::string &name) {
    if (!name.starts_with("vlan") || name.size() > 8 || name.size() == 4 ||
        name.find_first_not_of("0123456789", 4) != std::string::npos || name[4] == '0')
        return 0;
    auto vid = static_cast<std::uint32_t>(std::stoul(name.substr(4)));
    return vid <= 4094 ? vid + VLAN_IFINDEX_BASE : 0;
}

} // namespace

std::map<std::string, std::uint32_t> listed(Session &session) {
    try {
        return interfaces_of(session.proc().read("ifdb"));
    } catch (const ProcError &) {
        return {};
    }
}

std::uint32_t resolve(Session &session, const std::string &name) {
    if (auto known = session.names.find(name); known != session.names.end())
        return known->second;
    auto all = listed(session);
    if (auto known = all.find(name); known != all.end())
        return known->second;
    if (std::uint32_t ifindex = vlan_ifindex(name); ifindex != 0)
        return ifindex;
    if (std::uint32_t ifindex = if_nametoindex(name.c_str()); ifindex != 0 || all.empty())
        return ifindex;
    throw WordError(no_interface(session, name, names_listed(session)));
}

Status run_words(Session &session, const Words &words, std::string &wrong) {
    try {
        if (asks_for_help(words)) {
            session.print(help(without_help(words)));
            return DONE;
        }
        perform(session,
                parse(words, [&](const std::string &name) { return resolve(session, name); }));
        return DONE;
    } catch (const Refused &error) {
        wrong = error.what();
        return REFUSED;
    } catch (const ProcMissing &error) {
        wrong = error.what();
        return WRONG;
    } catch (const ProcError &error) {
        wrong = error.what();
        return REFUSED;
    } catch (const std::runtime_error &error) { // of the words, or of the way to the switch
        wrong = error.what();
        return WRONG;
    }
}

Status run_line(Session &session, const std::string &line, std::string &wrong) {
    try {
        Words words = words_of(line);
        return words.empty() ? DONE : run_words(session, words, wrong);
    } catch (const WordError &error) {
        wrong = error.what();
        return WRONG;
    }
}

Status run_batch(Session &session, std::istream &input, const std::string &name, bool force,
                 const std::function<void(const std::string &)> &complain) {
    Status first = DONE;
    std::string line;
    session.already = session.told = 0;
    for (std::size_t number = 1; std::getline(input, line); number++) {
        std::string wrong;
        Status status = run_line(session, line, wrong);
        if (status == DONE)
            continue;
        complain(fmt::format("{}:{}: {}", name, number, wrong));
        if (first == DONE)
            first = status;
        if (!force)
            return status;
    }
    if (session.already != 0 && session.told == 0 && first == DONE && !session.json)
        session.print(fmt::format("{}: all of it is already so: nothing was changed\n", name));
    return first;
}

} // namespace tarnctl
