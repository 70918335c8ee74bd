// The control socket of a live switch: a Unix socket (who may connect: machine/unix_listener.h). A
// client sends one line and reads the reply until its end; the last line of the reply is "ok" or
// "error".
#pragma once

#include <string>

namespace live {

// Serves on a thread of its own. "" or what failed, in words.
std::string control_serve(const std::string &path);
void control_end();

// As a client: prints the reply. 0, 1 after an error of the line, 2 when no switch answers.
int control_ask(const std::string &path, const std::string &line);

} // namespace live
