// The netlink sockets of the process: what a kernel does with the messages of the family that the
// core registered, byte for byte, without a socket of the machine's.
//
// A client opens a socket, sends datagrams, and is handed answers and events, one message each.
// Commands are checked and answered as Linux 6.1 does it: by the policy, strictly, with extended
// acknowledgements for those who asked for them. The family is found by name, as everywhere
// (CTRL_CMD_GETFAMILY). There are no dumps.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <span>

namespace userlevel {

// Held while a command runs. Whoever configures the switch without a message takes it too.
std::mutex &netlink_serial();

class netlink_socket {
public:
    // May be called from any thread, also while another call is under way; does not call back.
    using receiver = std::function<void(std::span<const std::uint8_t> message)>;

    explicit netlink_socket(receiver receive);
    ~netlink_socket();
    netlink_socket(const netlink_socket &) = delete;
    netlink_socket &operator=(const netlink_socket &) = delete;

    // The number that answers carry.
    std::uint32_t portid() const { return portid_; }
    // One datagram of messages. Its answers have been handed over when this returns.
    void send(std::span<const std::uint8_t> datagram);
    // A socket option of the netlink level, as numbered there: NETLINK_ADD_MEMBERSHIP,
    // NETLINK_DROP_MEMBERSHIP, NETLINK_CAP_ACK, NETLINK_EXT_ACK. `protocol` is NETLINK_GENERIC, or,
    // for memberships in groups of whole frames, NETLINK_USERSOCK. 0 or a negative errno.
    int set_option(std::uint32_t protocol, std::uint32_t option, std::uint32_t value);

    struct state;

private:
    std::uint32_t portid_;
    state *state_;
};

} // namespace userlevel
