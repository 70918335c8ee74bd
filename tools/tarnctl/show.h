// The switch as a whole: its interfaces, VLANs, addresses, aggregators and spanning tree, and the
// batch that would make it again. In words or as JSON, from what the proc tree and the chip tell.
#pragma once

#include "tarnctl/standing.h"

#include <string>
#include <vector>

namespace tarnctl {

// `what` as the table of commands names it: "interfaces", "vlans", ... `of` narrows it down, where
// it says something: a name, "vlan 10", "port p1". Throws ProcError where the switch cannot be
// asked.
std::string show_facts(Session &session, const std::string &what,
                       const std::vector<std::string> &of);

// The lines of a batch. What nobody tells stands in comments, unless they are not wanted.
std::vector<std::string> running(Session &session, bool with_comments);

// What can be watched of a switch, each fact by its name: "link p1" is "up".
using Facts = std::map<std::string, std::string>;
Facts facts_of(Session &session);
// What is no longer, is new or is otherwise: "link p1: up, was down".
struct Change {
    std::string fact, now, before; // empty: is not
};
std::vector<Change> changes(const Facts &before, const Facts &now);

} // namespace tarnctl
