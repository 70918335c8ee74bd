// A switch in the background, whose command line returns when it is ready.
#pragma once

#include <string>

namespace live {

// Goes on in a process of its own, before there are threads: in its own session, in the folder
// where it was started. The first process waits: it prints the number of the other and ends with 0
// when that is ready, or ends as that does. "" or what failed, in words.
std::string go_to_background(const std::string &log);

// What is said from now on goes to the log, or nowhere. False when nobody waits for it any more.
bool is_ready();

} // namespace live
