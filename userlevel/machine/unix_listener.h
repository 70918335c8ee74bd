// The Unix sockets at which the process is reached, and who may connect to them: its owner alone,
// and root, unless a group is let in. Whoever connects to one may do what it serves: nobody is
// asked for more rights there.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace machine {

// Lets a group in, too: to the sockets, and to the mounted files. Before anything is served.
void let_in(gid_t group);
std::optional<gid_t> let_in();

// A listening socket at the path, which does not block, and whose folder is the caller's to
// protect. A socket that nobody serves is what a killed process has left, and is replaced; anything
// else that is there is left alone. "" or what failed, in words.
std::string listen_at(const std::string &path, int type, int &fd);

} // namespace machine
