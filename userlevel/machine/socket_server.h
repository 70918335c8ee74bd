// The process's protocol sockets, for other processes: a Unix socket, see tarn/socket_carrier.h.
#pragma once

#include "machine/unix_server.h"

#include <string>

namespace machine {

// Serves at the path on a thread of its own. "" or what failed, in words. Once a process.
std::string sockets_serve(const std::string &path);
// Closes what daemons hold, too.
void sockets_end();

// One client of such a server, whose descriptor this is.
std::unique_ptr<unix_client> socket_connected(event_loop &loop, int fd,
                                              std::function<void()> leave);

} // namespace machine
