// A switch that is a list: what it was sent, and what it is told to answer. It stands behind the
// in-process transport; beside it, a proc tree that is a map.
#pragma once

#include "client/client.h"
#include "tarnctl/session.h"

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fake {

using client::Bytes;
using client::View;

inline constexpr std::uint16_t FAMILY = 0x1D;
inline constexpr std::uint32_t GROUP = 7;

// Messages byte by byte, with no help of the library under test.
class Wire {
public:
    // A command as the client sends it: NLM_F_REQUEST | NLM_F_ACK, version 1.
    explicit Wire(std::uint8_t command, std::uint16_t type = FAMILY, std::uint16_t flags = 5) {
        put<std::uint32_t>(0);
        put<std::uint16_t>(type);
        put<std::uint16_t>(flags);
        put<std::uint32_t>(0);
        put<std::uint32_t>(0);
        bytes_.push_back(command);
        bytes_.push_back(1);
        put<std::uint16_t>(0);
    }

    Wire &u8(std::uint16_t number, std::uint8_t value) { return raw(number, {value}); }
    Wire &u16(std::uint16_t number, std::uint16_t value) { return raw(number, bytes_of(value)); }
    Wire &u32(std::uint16_t number, std::uint32_t value) { return raw(number, bytes_of(value)); }
    Wire &text(std::uint16_t number, const std::string &value) {
        return raw(number, Bytes(value.c_str(), value.c_str() + value.size() + 1));
    }
    Wire &hex(std::uint16_t number, const std::string &digits) {
        Bytes value;
        for (std::size_t at = 0; at + 1 < digits.size(); at += 2)
            value.push_back(
                static_cast<std::uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
        return raw(number, value);
    }
    Wire &raw(std::uint16_t number, const Bytes &value) {
        put<std::uint16_t>(static_cast<std::uint16_t>(value.size() + 4));
        put<std::uint16_t>(number);
        bytes_.insert(bytes_.end(), value.begin(), value.end());
        bytes_.resize((bytes_.size() + 3) & ~std::size_t{3});
        return *this;
    }

    // With the length, and the sequence number as it may be.
    Bytes done(std::uint32_t sequence) const {
        Bytes whole = bytes_;
        auto length = static_cast<std::uint32_t>(whole.size());
        std::memcpy(whole.data(), &length, 4);
        std::memcpy(whole.data() + 8, &sequence, 4);
        return whole;
    }
    // The attributes alone.
    Bytes attributes() const { return {bytes_.begin() + 20, bytes_.end()}; }

private:
    template <typename T>
    static Bytes bytes_of(T value) {
        Bytes bytes(sizeof(value));
        std::memcpy(bytes.data(), &value, sizeof(value));
        return bytes;
    }
    template <typename T>
    void put(T value) {
        Bytes bytes = bytes_of(value);
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    }

    Bytes bytes_;
};

inline std::uint32_t sequence_of(View message) {
    std::uint32_t sequence;
    std::memcpy(&sequence, message.data() + 8, 4);
    return sequence;
}

struct Reply {
    int error = 0;
    std::string text = {};
    std::uint32_t offset = 0; // of the attribute that the text is about
};

// An acknowledgement that is capped, as these clients ask for it.
inline Bytes acknowledge(View message, const Reply &reply) {
    constexpr std::uint16_t ERROR = 2, CAPPED = 0x100, TLVS = 0x200;
    Bytes bytes(16);
    const std::uint16_t type = ERROR, flags = CAPPED | (reply.text.empty() ? 0 : TLVS);
    std::memcpy(bytes.data() + 4, &type, 2);
    std::memcpy(bytes.data() + 6, &flags, 2);
    std::memcpy(bytes.data() + 8, message.data() + 8, 4);
    bytes.resize(36);
    std::memcpy(bytes.data() + 16, &reply.error, 4);
    std::memcpy(bytes.data() + 20, message.data(), 16);
    if (!reply.text.empty()) {
        Wire told(0);
        told.text(1, reply.text);
        if (reply.offset != 0)
            told.u32(2, reply.offset);
        Bytes behind = told.attributes();
        bytes.insert(bytes.end(), behind.begin(), behind.end());
    }
    auto length = static_cast<std::uint32_t>(bytes.size());
    std::memcpy(bytes.data(), &length, 4);
    return bytes;
}

// The family's id and its group, then the acknowledgement.
inline Bytes introduce(View message) {
    Bytes group = Wire(0).u32(2, GROUP).text(1, "tarnfwd").attributes();
    Bytes groups = Wire(0).raw(1, group).attributes();
    Bytes reply =
        Wire(1, 16, 0).text(2, "tarnfwd").u16(1, FAMILY).raw(7, groups).done(sequence_of(message));
    Bytes end = acknowledge(message, {});
    reply.insert(reply.end(), end.begin(), end.end());
    return reply;
}

class Proc : public tarnctl::ProcTree {
public:
    std::map<std::string, std::string> files = {};
    std::vector<std::string> writes = {}; // "file: text"
    std::function<void(const std::string &, const std::string &)> on_write = {};

    std::string name() const override { return "a list"; }
    std::string read(const std::string &path) override {
        auto file = files.find(path);
        if (file == files.end())
            throw tarnctl::ProcError(path + ": No such file or directory");
        return file->second;
    }
    void write(const std::string &path, const std::string &text) override {
        writes.push_back(path + ": " + text);
        if (on_write)
            on_write(path, text);
    }
};

class Switch {
public:
    std::vector<Bytes> sent = {};
    std::vector<Reply> replies = {}; // for the next commands; 0 when there are no more
    Proc proc = {};
    std::string printed = {};
    std::vector<std::string> traces = {};
    std::string socket_list = {};
    std::vector<std::string> chip_lines = {};
    std::unique_ptr<client::Client> client = nullptr;
    tarnctl::Session session;
    std::string wrong = {};

    Switch()
        : session{.client = [this]() -> client::Client & { return the_client(); },
                  .proc = [this]() -> tarnctl::ProcTree & { return proc; },
                  .chip =
                      [this](const std::string &line) {
                          chip_lines.push_back(line);
                          return "done\n";
                      },
                  .sockets = [this] { return socket_list; },
                  .follow = [this](const std::string &order) { traces.push_back(order); },
                  .print = [this](const std::string &text) { printed += text; }} {}

    Bytes answer(View message) {
        std::uint16_t type;
        std::memcpy(&type, message.data() + 4, 2);
        if (type == 16)
            return introduce(message);
        sent.emplace_back(message.begin(), message.end());
        Reply reply = sent.size() <= replies.size() ? replies[sent.size() - 1] : Reply{};
        return acknowledge(message, reply);
    }

    client::Client &the_client() {
        if (!client)
            client = std::make_unique<client::Client>(
                client::in_process([this](View message) { return answer(message); }));
        return *client;
    }

    tarnctl::Status line(const std::string &text) {
        wrong.clear();
        return tarnctl::run_line(session, text, wrong);
    }
};

} // namespace fake
