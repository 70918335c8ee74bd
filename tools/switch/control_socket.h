// The control socket of a live switch: a Unix socket (who may connect: machine/unix_listener.h). A
// client sends one line and reads the reply until its end; the last line of the reply is "ok" or
// "error". One that says nothing, or does not read, for five seconds is left.
#pragma once

#include "machine/unix_server.h"

#include <string>

namespace live {

// What a line is answered by; `ok` says whether the line was good.
using Command = std::string (*)(const std::string &line, bool *ok);

// Serves on a thread of its own. "" or what failed, in words.
std::string control_serve(const std::string &path, Command command);
// Clients are disconnected, the thread has ended and the path is gone when it returns.
void control_end();

// The clients of such a server.
machine::make_client control_clients(Command command);

// As a client: prints the reply. 0, 1 after an error of the line, 2 when no switch answers.
int control_ask(const std::string &path, const std::string &line);

} // namespace live
