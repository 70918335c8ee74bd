// The word "trace" of the control socket: events of the chain of redirects, a line each, as they
// come.
//
//   trace [json] [port NAME] [redirect NAME] [drops] [count N] [seconds N]
//
// Ends after that many lines or seconds, when the client goes, or never. A client that reads too
// slowly is told how many it has lost; frames do not wait for it.
#pragma once

#include <string>

namespace explain {

bool trace_is_order(const std::string &line);
// Streams to the socket until the end. "" or what was wrong with the line.
std::string trace_stream(int fd, const std::string &line);

} // namespace explain
