// Trying something on a copy of this process, which is thrown away.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace explain {

// What `tell` says in a copy of the process as it is now. Of what it does there nothing is seen
// here or elsewhere: the copy has no descriptor but the way back, and ends with its answer.
//
// The copy has this thread alone. What another one held locked stays locked there, so a copy that
// does not answer within half a second is given up and the next one made. None: three did not.
std::optional<std::string> on_a_copy(const std::function<std::string()> &tell);

} // namespace explain
