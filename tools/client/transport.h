// What carries messages to a switch and back: the kernel's family, the socket of a switch that is a
// process, or a function of this process.
#pragma once

#include "client/message.h"

#include <functional>
#include <memory>
#include <string>

namespace client {

class Transport {
public:
    virtual ~Transport() = default;
    virtual std::string name() const = 0; // "the kernel", "the socket '/run/...'"
    // One message. "" or what failed, in words.
    virtual std::string send(View message) = 0;
    // One datagram, which holds one message or several; empty when none has come in that time. A
    // negative time waits for ever. `wrong` takes what failed. Where messages were lost, since
    // nobody read, there is one that says so (NLMSG_OVERRUN).
    virtual Bytes receive(int milliseconds, std::string &wrong) = 0;
    // Events of the group from now on. "" or what failed.
    virtual std::string join(std::uint32_t group) = 0;
};

// Each is null after what failed has been put into `wrong`.
std::unique_ptr<Transport> open_kernel(std::string &wrong);
std::unique_ptr<Transport> open_socket(const std::string &path, std::string &wrong);

// Hands a message to the function and takes what it answers. It has no events.
using Function = std::function<Bytes(View message)>;
std::unique_ptr<Transport> in_process(Function function);

} // namespace client
