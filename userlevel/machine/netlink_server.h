// The process's netlink sockets, for other processes: a Unix socket, see tarn/tarnfwd_socket.h.
#pragma once

#include "machine/unix_server.h"

#include <string>

namespace machine {

// Serves at the path on a thread of its own. "" or what failed, in words. One path at a time.
std::string netlink_serve(const std::string &path);
// Clients are disconnected, the thread has ended and the path is gone when it returns.
void netlink_end();

// One client of such a server, whose descriptor this is.
std::unique_ptr<unix_client> netlink_connected(event_loop &loop, int fd,
                                               std::function<void()> leave);

} // namespace machine
