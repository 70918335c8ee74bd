// Attributes against a policy, by the rules of Linux 6.1 (lib/nlattr.c there) for strict checking.
#pragma once

#include "netlink_message.h"

namespace userlevel {

// What an extended acknowledgement tells besides the error.
struct nl_complaint {
    const char *text = nullptr;
    const nlattr *attribute = nullptr;
    const nla_policy_row *policy = nullptr;
};

// The attributes in these bytes by number; of several with one number, the last. 0 or negative.
int nl_parse(std::span<const u8> bytes, const genl_family_record &family, const nlattr **table,
             nl_complaint &complaint);

// Calls with each attribute that is whole; how many bytes are left over, or less than none.
template <typename Each>
int nl_each_attribute(std::span<const u8> bytes, Each each) {
    int rest = static_cast<int>(bytes.size());
    const u8 *at = bytes.data();
    while (rest >= static_cast<int>(NLA_HDRLEN)) {
        auto *attribute = reinterpret_cast<const nlattr *>(at);
        if (attribute->nla_len < NLA_HDRLEN || attribute->nla_len > rest)
            break;
        if (!each(attribute))
            break;
        at += nl_align(attribute->nla_len);
        rest -= static_cast<int>(nl_align(attribute->nla_len));
    }
    return rest;
}

} // namespace userlevel
