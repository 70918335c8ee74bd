// The controller of generic netlink, as far as finding the family wants it: CTRL_CMD_GETFAMILY.
#pragma once

#include "netlink_validate.h"

namespace userlevel {

inline constexpr u8 CONTROL_GETFAMILY = 3;
inline constexpr u8 CONTROL_LAST_UNCHECKED = 10;

struct control_question {
    std::span<const u8> attributes;
    u32 sequence;
    u32 portid;
};

// 0 with the answer, or a negative errno. `family` may be null: there is none.
int control_getfamily(const control_question &question, const genl_family_record *family,
                      u16 family_id, u32 group_id, nl_complaint &complaint,
                      std::vector<u8> &answer);

} // namespace userlevel
