#include "netlink_control.h"

#include "kernel/errno.h"

#include <algorithm>

namespace userlevel {

namespace {

constexpr u8 CONTROL_NEWFAMILY = 1;
constexpr u8 CONTROL_VERSION = 2;
constexpr u32 NAME_SIZE = 16;

enum : u16 {
    FAMILY_ID = 1,
    FAMILY_NAME = 2,
    VERSION = 3,
    HDRSIZE = 4,
    MAXATTR = 5,
    OPS = 6,
    GROUPS = 7,

    OP_ID = 1,
    OP_FLAGS = 2,
    GROUP_NAME = 1,
    GROUP_ID = 2,
};
constexpr u32 CAN_DO = 0x2;
constexpr u32 HAS_POLICY = 0x8;

constexpr nla_policy_row ID_ROW{NLA_U16, 0};
constexpr nla_policy_row NAME_ROW{NLA_NUL_STRING, NAME_SIZE - 1};

// This command is older than strict checking: what it does not know it passes over.
int check(const nlattr *attribute) {
    u32 length = nla_len(attribute);
    if ((attribute->nla_type & NLA_TYPE_MASK) == FAMILY_ID)
        return length < sizeof(u16) ? -ERANGE : 0;
    auto *text = static_cast<const u8 *>(nla_data(attribute));
    u32 looked_at = std::min(length, NAME_SIZE);
    if (looked_at == 0 || !std::memchr(text, 0, looked_at))
        return -EINVAL;
    if (text[length - 1] == 0)
        length--;
    return length > NAME_SIZE - 1 ? -ERANGE : 0;
}

} // namespace

int control_getfamily(const control_question &question, const genl_family_record *family,
                      u16 family_id, u32 group_id, nl_complaint &complaint,
                      std::vector<u8> &answer) {
    const nlattr *by_id = nullptr, *by_name = nullptr;
    int result = 0;
    int rest = nl_each_attribute(question.attributes, [&](const nlattr *attribute) {
        u16 type = attribute->nla_type & NLA_TYPE_MASK;
        if (type != FAMILY_ID && type != FAMILY_NAME)
            return true;
        result = check(attribute);
        if (result != 0)
            complaint = {"Attribute failed policy validation", attribute,
                         type == FAMILY_ID ? &ID_ROW : &NAME_ROW};
        (type == FAMILY_ID ? by_id : by_name) = attribute;
        return result == 0;
    });
    if (result != 0)
        return result;
    if (rest > 0)
        complaint.text = "bytes leftover after parsing attributes";
    if (!by_id && !by_name)
        return -EINVAL;
    bool found = false;
    if (by_id) {
        u16 id;
        std::memcpy(&id, nla_data(by_id), sizeof(id));
        found = id == family_id;
    }
    if (by_name)
        found =
            family && std::strcmp(static_cast<const char *>(nla_data(by_name)), family->name) == 0;
    if (!found || !family)
        return -ENOENT;

    nl_writer message({.length = 0,
                       .type = GENL_ID_CTRL,
                       .flags = 0,
                       .sequence = question.sequence,
                       .portid = question.portid});
    message.put(genlmsghdr{CONTROL_NEWFAMILY, CONTROL_VERSION, 0});
    message.text(FAMILY_NAME, family->name);
    message.attribute(FAMILY_ID, family_id);
    message.attribute(VERSION, u32{family->version});
    message.attribute(HDRSIZE, u32{0});
    message.attribute(MAXATTR, u32{family->maxattr});
    std::size_t ops = message.nest(OPS);
    for (u16 i = 0; i < family->command_count; i++) {
        std::size_t op = message.nest(static_cast<u16>(i + 1));
        message.attribute(OP_ID, u32{family->commands[i]});
        message.attribute(OP_FLAGS, CAN_DO | HAS_POLICY);
        message.nest_end(op);
    }
    message.nest_end(ops);
    std::size_t groups = message.nest(GROUPS);
    std::size_t group = message.nest(1);
    message.attribute(GROUP_ID, group_id);
    message.text(GROUP_NAME, family->group);
    message.nest_end(group);
    message.nest_end(groups);
    answer = message.end();
    return 0;
}

} // namespace userlevel
