// The proc tree of a switch: a folder of the file system, or what the control socket of tarn-switch
// answers.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace tarnctl {

// What the switch refused, or what it does not have, in words.
struct ProcError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// How long a switch may be silent before it counts as one that hangs.
inline constexpr std::chrono::milliseconds PATIENCE{10000};

// There is no switch to ask.
struct ProcMissing : ProcError {
    using ProcError::ProcError;
};

class ProcTree {
public:
    virtual ~ProcTree() = default;
    virtual std::string name() const = 0;
    // Throw ProcError. A path is as in "port1/auth".
    virtual std::string read(const std::string &path) = 0;
    virtual void write(const std::string &path, const std::string &text) = 0;
};

std::unique_ptr<ProcTree> proc_folder(const std::string &path);

// Says a line to the control socket and gives back its reply; throws ProcError with it when the
// switch calls it an error.
std::string control_ask(const std::string &path, const std::string &line,
                        std::chrono::milliseconds patience = PATIENCE);
// The same for a reply that goes on: given as it comes, in whole lines.
void control_follow(const std::string &path, const std::string &line,
                    const std::function<void(const std::string &text)> &print);
// The chip under the kernel's module, where it is the software one.
bool has_kernel_chip();
std::string kernel_chip_ask(const std::string &line);
std::unique_ptr<ProcTree> proc_of_control(const std::string &path);

// The one that is there: `path` (else $TARN_PROC) if given, else /proc/tarn, else the control
// socket.
std::unique_ptr<ProcTree> find_proc(const std::string &path, const std::string &control);
// `path`, else $TARN_CONTROL, else the default.
std::string control_path(const std::string &path);

} // namespace tarnctl
