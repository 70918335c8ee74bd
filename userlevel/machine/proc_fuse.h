// The process's proc tree as a file system of the machine (FUSE), at a path of the user's choice.
//
// Modes, sizes and results are those of the kernel's own: a file has no size and is read to its
// end, a view is printed when it is read from its start or anywhere but where the last read ended,
// a write gives what the store says. Two things differ, since the machine decides them: a write of
// no bytes does not get here, and the place in an open file moves with what is written.
//
// Others than the owner of the process see the files when their group is let in
// (machine/unix_listener.h).
#pragma once

#include <string>

namespace machine {

// Serves the directory of the tree at the path, on a thread of this library. The path is made when
// it is not there. What a killed process has left mounted there is replaced; what somebody uses is
// not. "" or what failed and what to do, in words. Once a process at a time.
std::string proc_mount(const std::string &path, const std::string &directory);
void proc_unmount();

} // namespace machine
