// The process's protocol sockets, for other processes: a Unix socket, see tarn/socket_carrier.h.
#pragma once

#include <string>

namespace machine {

// Serves at the path on a thread of its own. "" or what failed, in words. Once a process.
std::string sockets_serve(const std::string &path);
// Closes what daemons hold, too.
void sockets_end();

} // namespace machine
