// What happens to a switch, line by line: events as they come, and changes as they are found, for
// which the family has no events.
#pragma once

namespace tarnctl {

struct Session;

// Ends after `count` lines; 0: never.
void monitor(Session &session, unsigned long count);

} // namespace tarnctl
