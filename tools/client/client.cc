#include "client/client.h"

#include <cstdlib>
#include <cstring>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <tarn/tarnfwd_nl.h>
#include <tarn/tarnfwd_socket.h>

namespace client {

namespace {

// Milliseconds: 4094 VLANs at once may take a slow kernel long.
constexpr int PATIENCE = 60000;
constexpr int PATIENCE_AFTER_LOSS = 5000;

std::string as_text(View value) {
    const auto *text = reinterpret_cast<const char *>(value.data());
    return {text, strnlen(text, value.size())};
}

std::uint32_t group_of(View groups) {
    for (const Attribute &group : attributes_of(groups)) {
        std::string name;
        std::uint32_t id = 0;
        for (const Attribute &part : attributes_of(group.value)) {
            if (part.number == CTRL_ATTR_MCAST_GRP_NAME)
                name = as_text(part.value);
            if (part.number == CTRL_ATTR_MCAST_GRP_ID)
                id = part.number_value();
        }
        if (name == TARNFWD_NL_GROUP)
            return id;
    }
    return 0;
}

std::unique_ptr<Client> try_socket(const std::string &path, std::string &tried) {
    std::string wrong;
    auto transport = open_socket(path, wrong);
    if (!transport) {
        tried += "\n  " + wrong;
        return nullptr;
    }
    return std::make_unique<Client>(std::move(transport));
}

std::unique_ptr<Client> try_kernel(std::string &tried) {
    std::string wrong;
    auto transport = open_kernel(wrong);
    if (transport) {
        try {
            return std::make_unique<Client>(std::move(transport));
        } catch (const Error &error) {
            wrong = error.what();
        }
    }
    tried += "\n  " + wrong;
    return nullptr;
}

} // namespace

Client::Client(std::unique_ptr<Transport> transport) : transport_(std::move(transport)) {
    resolve();
}

void Client::resolve() {
    Message ask(CTRL_CMD_GETFAMILY);
    ask.text(CTRL_ATTR_FAMILY_NAME, TARNFWD_NL_FAMILY);
    family_ = GENL_ID_CTRL;
    Answer answer = exchange(ask);
    std::uint16_t found = 0;
    for (const Event &reply : events_) {
        for (const Attribute &attribute : reply.attributes()) {
            if (attribute.number == CTRL_ATTR_FAMILY_ID)
                found = static_cast<std::uint16_t>(attribute.number_value());
            if (attribute.number == CTRL_ATTR_MCAST_GROUPS)
                group_ = group_of(attribute.value);
        }
    }
    events_.clear();
    family_ = found;
    if (answer.error == -ENOENT)
        throw Error(where() + ": no family '" TARNFWD_NL_FAMILY
                              "' there: the module tarnfwd is not loaded");
    if (answer.error != 0 || found == 0)
        throw Error(where() + ": the family '" TARNFWD_NL_FAMILY "' cannot be found: " +
                    std::strerror(-answer.error));
}

Bytes Client::wait(int milliseconds) {
    std::string wrong;
    Bytes datagram = transport_->receive(milliseconds, wrong);
    if (!wrong.empty())
        throw Error(where() + ": " + wrong);
    return datagram;
}

Answer Client::exchange(Message &message) {
    message.address(family_, NLM_F_REQUEST | NLM_F_ACK, ++sequence_);
    std::string wrong = transport_->send(message.wire());
    if (!wrong.empty())
        throw Error(where() + ": " + wrong);
    for (int patience = PATIENCE;;) {
        Bytes datagram = wait(patience);
        if (datagram.empty())
            throw Error(where() + ": no answer in " + std::to_string(patience / 1000) + " seconds" +
                        (patience == PATIENCE ? "" : "; events that were not read took its room"));
        std::optional<Answer> answer;
        for (const Received &received : messages_of(datagram)) {
            if (received.type == NLMSG_OVERRUN) {
                has_lost_ = true;
                patience = PATIENCE_AFTER_LOSS;
            } else if (auto event = event_of(received, family_)) {
                events_.push_back(std::move(*event));
            } else if (received.sequence == sequence_) {
                answer = answer_of(received, message.wire());
            }
        }
        if (answer)
            return *answer;
    }
}

Answer Client::command(Message message) {
    return exchange(message);
}

void Client::listen() {
    std::string wrong =
        group_ != 0 ? transport_->join(group_) : "the family has no group of events";
    if (!wrong.empty())
        throw Error(where() + ": " + wrong);
}

std::optional<Event> Client::next_event(int milliseconds) {
    if (events_.empty()) {
        Bytes datagram = wait(milliseconds);
        for (const Received &received : messages_of(datagram)) {
            has_lost_ |= received.type == NLMSG_OVERRUN;
            if (auto event = event_of(received, family_))
                events_.push_back(std::move(*event));
        }
    }
    if (events_.empty())
        return std::nullopt;
    Event event = std::move(events_.front());
    events_.pop_front();
    return event;
}

std::unique_ptr<Client> find(const std::string &path) {
    const char *variable = std::getenv(TARNFWD_SOCKET_VARIABLE);
    std::string given = !path.empty() ? path : variable ? variable : "";
    std::string tried;
    std::unique_ptr<Client> found;
    if (!given.empty())
        found = try_socket(given, tried);
    else if (found = try_kernel(tried); !found)
        found = try_socket(TARNFWD_SOCKET_PATH, tried);
    if (!found)
        throw Error("no switch answers; tried:" + tried);
    return found;
}

} // namespace client
