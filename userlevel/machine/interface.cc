#include "machine/interface.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/if_packet.h>
#include <linux/if_tun.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace machine {

namespace {

ifreq request_for(const std::string &name) {
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    return request;
}

int control_socket() {
    static const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return fd;
}

int ask(unsigned long what, ifreq &request) {
    return ioctl(control_socket(), what, &request);
}

int failed(int fd, std::string *why, const std::string &what) {
    *why = what + ": " + std::strerror(errno);
    if (fd >= 0)
        close(fd);
    return -1;
}

template <typename Each>
void each_attribute(const nlmsghdr *message, std::size_t header, Each each) {
    const auto *attribute =
        static_cast<const nlattr *>(mnl_nlmsg_get_payload_offset(message, header));
    const auto *end = static_cast<const char *>(mnl_nlmsg_get_payload_tail(message));
    while (
        mnl_attr_ok(attribute, static_cast<int>(end - reinterpret_cast<const char *>(attribute)))) {
        each(attribute);
        attribute = mnl_attr_next(attribute);
    }
}

struct watcher {
    mnl_socket *socket;
    std::function<void(const link_state &)> link;
    std::function<void(const address_state &)> address;
};

int on_link(const nlmsghdr *message, const watcher &to) {
    const auto *info = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(message));
    if (info->ifi_family != AF_UNSPEC)
        return MNL_CB_OK; // of a bridge, about its ports
    link_state state{.ifindex = static_cast<unsigned>(info->ifi_index),
                     .flags = info->ifi_flags,
                     .gone = message->nlmsg_type == RTM_DELLINK};
    each_attribute(message, sizeof(*info), [&](const nlattr *attribute) {
        switch (mnl_attr_get_type(attribute)) {
        case IFLA_IFNAME:
            state.name = mnl_attr_get_str(attribute);
            break;
        case IFLA_MTU:
            state.mtu = mnl_attr_get_u32(attribute);
            break;
        case IFLA_ADDRESS:
            state.has_address = mnl_attr_get_payload_len(attribute) == state.address.size();
            if (state.has_address)
                std::memcpy(state.address.data(), mnl_attr_get_payload(attribute),
                            state.address.size());
            break;
        }
    });
    to.link(state);
    return MNL_CB_OK;
}

int on_address(const nlmsghdr *message, const watcher &to) {
    const auto *info = static_cast<const ifaddrmsg *>(mnl_nlmsg_get_payload(message));
    address_state state{.ifindex = info->ifa_index,
                        .family = info->ifa_family,
                        .bytes = {},
                        .prefix = info->ifa_prefixlen,
                        .gone = message->nlmsg_type == RTM_DELADDR};
    bool known = false;
    each_attribute(message, sizeof(*info), [&](const nlattr *attribute) {
        // On our devices it is the interface's own address, too.
        if (mnl_attr_get_type(attribute) != IFA_ADDRESS ||
            mnl_attr_get_payload_len(attribute) > state.bytes.size())
            return;
        std::memcpy(state.bytes.data(), mnl_attr_get_payload(attribute),
                    mnl_attr_get_payload_len(attribute));
        known = true;
    });
    if (known && (state.family == AF_INET || state.family == AF_INET6))
        to.address(state);
    return MNL_CB_OK;
}

int on_message(const nlmsghdr *message, void *data) {
    const auto &to = *static_cast<const watcher *>(data);
    switch (message->nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
        return on_link(message, to);
    case RTM_NEWADDR:
    case RTM_DELADDR:
        return on_address(message, to);
    default:
        return MNL_CB_OK;
    }
}

// Asks for all there is, and reads on until the last of it.
bool dump(const watcher &to, std::uint16_t what) {
    std::vector<char> buffer(1 << 16);
    nlmsghdr *message = mnl_nlmsg_put_header(buffer.data());
    message->nlmsg_type = what;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message->nlmsg_seq = what;
    mnl_nlmsg_put_extra_header(message, sizeof(rtgenmsg));
    if (mnl_socket_sendto(to.socket, message, message->nlmsg_len) < 0)
        return false;
    for (;;) {
        ssize_t length = mnl_socket_recvfrom(to.socket, buffer.data(), buffer.size());
        if (length < 0)
            return false;
        int more = mnl_cb_run(buffer.data(), static_cast<std::size_t>(length), 0, 0, on_message,
                              const_cast<watcher *>(&to));
        if (more <= MNL_CB_STOP)
            return more == MNL_CB_STOP;
    }
}

void follow(const watcher &to) {
    std::vector<char> buffer(1 << 16);
    for (;;) {
        ssize_t length = mnl_socket_recvfrom(to.socket, buffer.data(), buffer.size());
        if (length < 0 && errno == ENOBUFS) { // too many at once: some are lost, so ask for all
            dump(to, RTM_GETLINK);
            dump(to, RTM_GETADDR);
            continue;
        }
        if (length < 0 && errno != EINTR)
            return;
        if (length > 0)
            mnl_cb_run(buffer.data(), static_cast<std::size_t>(length), 0, 0, on_message,
                       const_cast<watcher *>(&to));
    }
}

// --- neighbours ----------------------------------------------------------------------------------

int on_neighbour(const nlmsghdr *message, void *data) {
    auto &all = *static_cast<std::vector<neighbour> *>(data);
    if (message->nlmsg_type != RTM_NEWNEIGH)
        return MNL_CB_OK;
    const auto *info = static_cast<const ndmsg *>(mnl_nlmsg_get_payload(message));
    neighbour one{.ifindex = static_cast<unsigned>(info->ndm_ifindex),
                  .family = info->ndm_family,
                  .bytes = {},
                  .mac = {},
                  .is_by_hand = (info->ndm_state & (NUD_PERMANENT | NUD_NOARP)) != 0};
    bool is_known = false;
    each_attribute(message, sizeof(*info), [&](const nlattr *attribute) {
        std::size_t length = mnl_attr_get_payload_len(attribute);
        if (mnl_attr_get_type(attribute) == NDA_DST && length <= one.bytes.size())
            std::memcpy(one.bytes.data(), mnl_attr_get_payload(attribute), length);
        if (mnl_attr_get_type(attribute) == NDA_LLADDR && length == one.mac.size()) {
            std::memcpy(one.mac.data(), mnl_attr_get_payload(attribute), length);
            is_known = true;
        }
    });
    if (is_known)
        all.push_back(one);
    return MNL_CB_OK;
}

// A request about neighbours, and its answers to the end; those that are messages go to `each`.
template <typename Fill>
void ask_neighbours(std::uint16_t type, std::uint16_t flags, int family, unsigned ifindex,
                    Fill fill, mnl_cb_t each, void *data) {
    std::vector<char> buffer(1 << 16);
    mnl_socket *socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    if (!socket)
        return;
    nlmsghdr *message = mnl_nlmsg_put_header(buffer.data());
    message->nlmsg_type = type;
    message->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    auto *about = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ndmsg)));
    about->ndm_family = static_cast<unsigned char>(family);
    about->ndm_ifindex = static_cast<int>(ifindex);
    fill(message);
    bool more = mnl_socket_sendto(socket, message, message->nlmsg_len) >= 0;
    while (more) {
        ssize_t length = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
        more = length > 0 && mnl_cb_run(buffer.data(), static_cast<std::size_t>(length), 0, 0, each,
                                        data) > MNL_CB_STOP;
    }
    mnl_socket_close(socket);
}

} // namespace

std::vector<neighbour> machine_neighbours(int family) {
    std::vector<neighbour> all;
    ask_neighbours(
        RTM_GETNEIGH, NLM_F_DUMP, family, 0, [](nlmsghdr *) {}, on_neighbour, &all);
    return all;
}

// One that has gone meanwhile is no error.
void machine_neighbour_delete(const neighbour &one) {
    auto fill = [&one](nlmsghdr *message) {
        mnl_attr_put(message, NDA_DST, one.family == AF_INET ? 4 : 16, one.bytes.data());
    };
    ask_neighbours(RTM_DELNEIGH, NLM_F_ACK, one.family, one.ifindex, fill, nullptr, nullptr);
}

int tap_open(const std::string &name, unsigned ifindex, std::string *why) {
    int fd = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return failed(fd, why, "/dev/net/tun");
    if (ifindex != 0 && ioctl(fd, TUNSETIFINDEX, &ifindex) != 0)
        return failed(fd, why, "the number of device '" + name + "'");
    ifreq request = request_for(name);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (ioctl(fd, TUNSETIFF, &request) != 0)
        return failed(fd, why, "device '" + name + "'");
    tap_set_carrier(fd, false);
    return fd;
}

int tap_set_carrier(int fd, bool on) {
    unsigned carrier = on;
    return ioctl(fd, TUNSETCARRIER, &carrier);
}

int interface_set_up(const std::string &name, bool up) {
    ifreq request = request_for(name);
    if (ask(SIOCGIFFLAGS, request) != 0)
        return -1;
    short flags = static_cast<short>(up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
    if (flags == request.ifr_flags)
        return 0;
    request.ifr_flags = flags;
    return ask(SIOCSIFFLAGS, request);
}

int interface_set_mtu(const std::string &name, unsigned mtu) {
    ifreq request = request_for(name);
    request.ifr_mtu = static_cast<int>(mtu);
    return ask(SIOCSIFMTU, request);
}

int interface_set_address(const std::string &name, const std::uint8_t *address) {
    ifreq request = request_for(name);
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    std::memcpy(request.ifr_hwaddr.sa_data, address, 6);
    return ask(SIOCSIFHWADDR, request);
}

int interface_open(unsigned ifindex, std::uint16_t ethertype) {
    int mode = SOCK_RAW | SOCK_CLOEXEC | (ethertype != 0 ? SOCK_NONBLOCK : 0);
    int fd = socket(AF_PACKET, mode, 0); // protocol 0: receives nothing yet
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_protocol = ethertype;
    to.sll_ifindex = static_cast<int>(ifindex);
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr *>(&to), sizeof(to)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

link_state interface_state(const std::string &name) {
    link_state state{.ifindex = if_nametoindex(name.c_str()), .name = name};
    ifreq request = request_for(name);
    if (state.ifindex != 0 && ask(SIOCGIFFLAGS, request) == 0)
        state.flags = static_cast<unsigned short>(request.ifr_flags);
    if (state.ifindex != 0 && ask(SIOCGIFMTU, request) == 0)
        state.mtu = static_cast<unsigned>(request.ifr_mtu);
    if (state.ifindex != 0 && ask(SIOCGIFHWADDR, request) == 0) {
        state.has_address = true;
        std::memcpy(state.address.data(), request.ifr_hwaddr.sa_data, state.address.size());
    }
    return state;
}

std::string watch_interfaces(std::function<void(const link_state &)> link,
                             std::function<void(const address_state &)> address) {
    auto *to = new watcher{mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), std::move(link),
                           std::move(address)};
    if (!to->socket ||
        mnl_socket_bind(to->socket, RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR,
                        MNL_SOCKET_AUTOPID) != 0) {
        std::string why = std::strerror(errno);
        delete to;
        return "the machine's interfaces cannot be watched: " + why;
    }
    std::thread([to] {
        dump(*to, RTM_GETLINK);
        dump(*to, RTM_GETADDR);
        follow(*to);
    }).detach();
    return "";
}

} // namespace machine
