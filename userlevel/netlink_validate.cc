#include "netlink_validate.h"

#include "kernel/errno.h"

namespace userlevel {

namespace {

u32 exact_length(nla_policy_type type) {
    switch (type) {
    case NLA_U8:
        return 1;
    case NLA_U16:
        return 2;
    case NLA_U32:
        return 4;
    default:
        return 0;
    }
}

int validate(const nlattr *attribute, const nla_policy_row &row, nl_complaint &complaint) {
    auto refuse = [&](int error, const char *text) {
        complaint = {text, attribute, &row};
        return error;
    };
    u32 length = nla_len(attribute);
    u32 exact = exact_length(row.type);
    if (exact && length != exact)
        return refuse(-EINVAL, "invalid attribute length");
    if (attribute->nla_type & NLA_F_NESTED)
        return refuse(-EINVAL, "NLA_F_NESTED not expected");
    if (row.type == NLA_STRING && length < 1)
        return refuse(-ERANGE, "Attribute failed policy validation");
    if (row.type == NLA_BINARY && row.length && length > row.length)
        return refuse(-ERANGE, "Attribute failed policy validation");
    return 0;
}

} // namespace

int nl_parse(std::span<const u8> bytes, const genl_family_record &family, const nlattr **table,
             nl_complaint &complaint) {
    int result = 0;
    int rest = nl_each_attribute(bytes, [&](const nlattr *attribute) {
        u16 type = attribute->nla_type & NLA_TYPE_MASK;
        if (type == 0 || type > family.maxattr) {
            complaint = {"Unknown attribute type", attribute, nullptr};
            result = -EINVAL;
            return false;
        }
        result = validate(attribute, family.policy[type], complaint);
        if (result == 0)
            table[type] = attribute;
        return result == 0;
    });
    if (result == 0 && rest > 0) {
        complaint = {"bytes leftover after parsing attributes", nullptr, nullptr};
        return -EINVAL;
    }
    return result;
}

} // namespace userlevel
