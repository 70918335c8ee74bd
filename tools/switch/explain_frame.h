// The word "explain" of the control socket: where a frame would go, and why.
//
//   explain [json] PORT HEX
//
// It is let through a copy of the process (explain/on_a_copy.h): nothing is sent, counted or
// learned, and no throttle has less for it.
#pragma once

#include <string>

namespace live {

// What is behind the word. `ok` says whether it was good.
std::string explain_frame(const std::string &words, bool *ok);

} // namespace live
