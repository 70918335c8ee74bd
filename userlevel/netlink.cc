#include "netlink.h"

#include "kernel/errno.h"
#include "kernel/memory.h"
#include "netlink_control.h"
#include "netlink_validate.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

// By the rules of Linux 6.1: net/netlink/genetlink.c and af_netlink.c there.
namespace userlevel {

struct netlink_socket::state {
    receiver receive;
    u32 portid;
    bool extended_acks = false;
    bool capped_acks = false;
    std::set<std::pair<u32, u32>> groups; // protocol, group
};

namespace {

constexpr u32 NETLINK_GENERIC = 16;
constexpr u32 ADD_MEMBERSHIP = 1;
constexpr u32 DROP_MEMBERSHIP = 2;
constexpr u32 CAP_ACK = 10;
constexpr u32 EXT_ACK = 11;
constexpr u32 RAW_GROUPS = 32;

constexpr u16 FAMILY_ID = GENL_ID_CTRL + 3; // the first that a kernel gives
constexpr u32 GROUP_ID = 2;                 // likewise

std::mutex serial;

// The sockets and who is in which group.
std::mutex sockets_mutex;
std::vector<netlink_socket::state *> sockets;
u32 last_portid = 0;

const genl_family_record *family;

int deliver(u32 protocol, u32 group, std::span<const u8> message) {
    std::lock_guard guard(sockets_mutex);
    int result = -ESRCH;
    for (netlink_socket::state *each : sockets)
        if (each->groups.contains({protocol, group})) {
            each->receive(message);
            result = 0;
        }
    return result;
}

// One message of a datagram, aligned, with its header copied out.
struct request {
    const u8 *bytes;
    nlmsghdr header;

    std::span<const u8> payload() const {
        return {bytes + NLMSG_HDRLEN, header.length - NLMSG_HDRLEN};
    }
    std::span<const u8> attributes() const {
        return {bytes + NLMSG_HDRLEN + GENL_HDRLEN, header.length - NLMSG_HDRLEN - GENL_HDRLEN};
    }
    genlmsghdr generic() const {
        genlmsghdr generic;
        std::memcpy(&generic, bytes + NLMSG_HDRLEN, sizeof(generic));
        return generic;
    }
    bool is_dump() const { return (header.flags & NLM_F_DUMP) == NLM_F_DUMP; }
};

// Of a command above those that were known when this began to be checked.
int check_header(const request &message, nl_complaint &complaint) {
    if (message.generic().reserved) {
        complaint.text = "genlmsghdr.reserved field is not 0";
        return -EINVAL;
    }
    u16 flags = message.header.flags;
    if (message.is_dump())
        flags = static_cast<u16>(flags & ~NLM_F_DUMP);
    if (flags & ~(NLM_F_REQUEST | NLM_F_ACK | NLM_F_ECHO)) {
        complaint.text = "ambiguous or reserved bits set in nlmsg_flags";
        return -EINVAL;
    }
    return 0;
}

int run_command(const request &message, nl_complaint &complaint) {
    u8 command = message.generic().command;
    const u8 *end = family->commands + family->command_count;
    bool known = std::find(family->commands, end, command) != end;
    if (command > *std::max_element(family->commands, end)) {
        int result = check_header(message, complaint);
        if (result != 0)
            return result;
    }
    if (!known || message.is_dump())
        return -EOPNOTSUPP;
    std::array<const nlattr *, UINT8_MAX + 1> table{};
    int result = nl_parse(message.attributes(), *family, table.data(), complaint);
    return result != 0 ? result : family->doit(command, table.data());
}

int run(netlink_socket::state &from, const request &message, nl_complaint &complaint) {
    bool control = message.header.type == GENL_ID_CTRL;
    if (!control && (message.header.type != FAMILY_ID || !family))
        return -ENOENT;
    if (message.header.length < NLMSG_HDRLEN + GENL_HDRLEN)
        return -EINVAL;
    std::lock_guard guard(serial);
    if (!control)
        return run_command(message, complaint);
    if (message.generic().command > CONTROL_LAST_UNCHECKED) {
        int result = check_header(message, complaint);
        if (result != 0)
            return result;
    }
    if (message.generic().command != CONTROL_GETFAMILY || message.is_dump())
        return -EOPNOTSUPP;
    control_question question{message.attributes(), message.header.sequence, from.portid};
    std::vector<u8> answer;
    int result = control_getfamily(question, family, FAMILY_ID, GROUP_ID, complaint, answer);
    if (result == 0)
        from.receive(answer);
    return result;
}

void put_policy(nl_writer &answer, const nla_policy_row &row) {
    constexpr u16 POLICY = 4, TYPE = 1, MIN_VALUE = 4, MAX_VALUE = 5, MAX_LENGTH = 7;
    constexpr u32 BINARY = 10, STRING = 11, NUL_STRING = 12;
    constexpr u32 INTEGER = 1; // u8 is 2, u16 3, u32 4
    std::size_t nest = answer.nest(POLICY | NLA_F_NESTED);
    bool integer = row.type == NLA_U8 || row.type == NLA_U16 || row.type == NLA_U32;
    if (integer) {
        answer.attribute(MIN_VALUE, u64{0});
        answer.attribute(MAX_VALUE, (u64{1} << (4u << row.type)) - 1);
    } else if (row.length) {
        answer.attribute(MAX_LENGTH, u32{row.length});
    }
    answer.attribute(TYPE, integer                      ? INTEGER + row.type
                           : row.type == NLA_STRING     ? STRING
                           : row.type == NLA_NUL_STRING ? NUL_STRING
                                                        : BINARY);
    answer.nest_end(nest);
}

void put_complaint(nl_writer &answer, const request &message, int error,
                   const nl_complaint &complaint) {
    constexpr u16 MESSAGE = 1, OFFSET = 2;
    if (complaint.text)
        answer.text(MESSAGE, complaint.text);
    if (error && complaint.attribute)
        answer.attribute(
            OFFSET,
            static_cast<u32>(reinterpret_cast<const u8 *>(complaint.attribute) - message.bytes));
    if (error && complaint.policy)
        put_policy(answer, *complaint.policy);
}

void acknowledge(netlink_socket::state &to, const request &message, int error,
                 const nl_complaint &complaint) {
    bool whole = error && !to.capped_acks;
    bool extended = to.extended_acks &&
                    (complaint.text || (error && (complaint.attribute || complaint.policy)));
    u16 flags = static_cast<u16>((whole ? 0 : NLM_F_CAPPED) | (extended ? NLM_F_ACK_TLVS : 0));
    nl_writer answer({.length = 0,
                      .type = NLMSG_ERROR,
                      .flags = flags,
                      .sequence = message.header.sequence,
                      .portid = to.portid});
    answer.put(error);
    answer.put(message.header);
    if (whole)
        answer.raw(message.payload());
    if (extended)
        put_complaint(answer, message, error, complaint);
    to.receive(answer.end());
}

void handle(netlink_socket::state &from, const request &message) {
    nl_complaint complaint;
    int error = 0;
    if ((message.header.flags & NLM_F_REQUEST) && message.header.type >= NLMSG_MIN_TYPE)
        error = run(from, message, complaint);
    if (error || (message.header.flags & NLM_F_ACK))
        acknowledge(from, message, error, complaint);
}

} // namespace

std::mutex &netlink_serial() {
    return serial;
}

netlink_socket::netlink_socket(receiver receive) {
    std::lock_guard guard(sockets_mutex);
    portid_ = ++last_portid;
    state_ = new state{.receive = std::move(receive), .portid = portid_, .groups = {}};
    sockets.push_back(state_);
}

netlink_socket::~netlink_socket() {
    std::lock_guard guard(sockets_mutex);
    std::erase(sockets, state_);
    delete state_;
}

void netlink_socket::send(std::span<const u8> datagram) {
    // In a block of its own, aligned as attributes want it.
    std::vector<u8> copy(datagram.begin(), datagram.end());
    std::size_t rest = copy.size();
    for (const u8 *at = copy.data(); rest >= NLMSG_HDRLEN;) {
        request message{at, {}};
        std::memcpy(&message.header, at, sizeof(message.header));
        if (message.header.length < NLMSG_HDRLEN || message.header.length > rest)
            return;
        handle(*state_, message);
        std::size_t step = std::min<std::size_t>(nl_align(message.header.length), rest);
        at += step;
        rest -= step;
    }
}

int netlink_socket::set_option(u32 protocol, u32 option, u32 value) {
    std::lock_guard guard(sockets_mutex);
    if (option == CAP_ACK || option == EXT_ACK) {
        (option == CAP_ACK ? state_->capped_acks : state_->extended_acks) = value != 0;
        return 0;
    }
    if (option != ADD_MEMBERSHIP && option != DROP_MEMBERSHIP)
        return -EINVAL;
    bool exists = protocol == NETLINK_GENERIC
                      ? family && value == GROUP_ID
                      : protocol == NETLINK_USERSOCK && value != 0 && value <= RAW_GROUPS;
    if (!exists)
        return -EINVAL;
    if (option == ADD_MEMBERSHIP)
        state_->groups.insert({protocol, value});
    else
        state_->groups.erase({protocol, value});
    return 0;
}

} // namespace userlevel

using namespace userlevel;

i32 genl_register_family(const genl_family_record *record) {
    family = record;
    return 0;
}

void *genlmsg_put(sk_buff *skb, u32 portid, u32 sequence, const genl_family_record *of, int flags,
                  u8 command) {
    if (skb_tailroom(skb) < NLMSG_HDRLEN + GENL_HDRLEN)
        return nullptr;
    nlmsghdr header{.length = NLMSG_HDRLEN + GENL_HDRLEN,
                    .type = FAMILY_ID,
                    .flags = static_cast<u16>(flags),
                    .sequence = sequence,
                    .portid = portid};
    genlmsghdr generic{.command = command, .version = of->version, .reserved = 0};
    auto *at = static_cast<u8 *>(skb_put(skb, header.length));
    std::memcpy(at, &header, sizeof(header));
    std::memcpy(at + NLMSG_HDRLEN, &generic, sizeof(generic));
    return at + header.length;
}

void genlmsg_end(sk_buff *skb, void *header) {
    u8 *message = static_cast<u8 *>(header) - GENL_HDRLEN - NLMSG_HDRLEN;
    u32 length = static_cast<u32>(skb_data(skb) + skb_len(skb) - message);
    std::memcpy(message, &length, sizeof(length));
}

i32 genlmsg_multicast_allns(const genl_family_record *, sk_buff *skb, u32, u32, gfp_t) {
    i32 result = deliver(NETLINK_GENERIC, GROUP_ID, {skb_data(skb), skb_len(skb)});
    consume_skb(skb);
    return result;
}

int nla_put(sk_buff *skb, int type, int length, const void *data) {
    u32 size = NLA_HDRLEN + static_cast<u32>(length);
    if (skb_tailroom(skb) < nl_align(size))
        return -EMSGSIZE;
    auto *at = static_cast<u8 *>(skb_put(skb, nl_align(size)));
    nlattr header{static_cast<u16>(size), static_cast<u16>(type)};
    std::memcpy(at, &header, sizeof(header));
    std::memcpy(at + NLA_HDRLEN, data, static_cast<std::size_t>(length));
    std::memset(at + size, 0, nl_align(size) - size);
    return 0;
}

// There is nothing to such a socket but that it exists: a block of memory, as any other socket's.
sock *netlink_kernel_create(int, u32) {
    return static_cast<sock *>(__kmalloc(sizeof(void *), GFP_KERNEL));
}

i32 netlink_broadcast(sock *, sk_buff *skb, u32, u32 group, gfp_t) {
    i32 result = deliver(NETLINK_USERSOCK, group, {skb_data(skb), skb_len(skb)});
    consume_skb(skb);
    return result;
}
