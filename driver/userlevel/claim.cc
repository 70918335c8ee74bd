#include "claim.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int ASKED_AT_MOST =
    4096; // nobody takes a question away; beyond these the holder is unknown

struct name {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    socklen_t length;

    explicit name(const char *device)
        : length(static_cast<socklen_t>(
              offsetof(sockaddr_un, sun_path) + 1 +
              std::snprintf(address.sun_path + 1, sizeof(address.sun_path) - 1,
                            "tarn-switch/device/%u", if_nametoindex(device)))) {}
    const sockaddr *generic() const { return reinterpret_cast<const sockaddr *>(&address); }
};

int unix_socket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

ucred holder(const char *device) {
    ucred who{.pid = 0, .uid = 0, .gid = 0};
    socklen_t size = sizeof(who);
    const name where(device);
    int fd = unix_socket();
    if (connect(fd, where.generic(), where.length) == 0)
        getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &who, &size);
    close(fd);
    return who;
}

} // namespace

int claim_device(const char *device, int &claim) {
    const name where(device);
    claim = unix_socket();
    if (claim < 0)
        return -errno;
    if (bind(claim, where.generic(), where.length) == 0 && listen(claim, ASKED_AT_MOST) == 0)
        return 0;
    int error = errno;
    close(claim);
    claim = -1;
    if (error != EADDRINUSE)
        return -error;
    // Anybody may bind the name; a stranger could have no port on the device.
    uid_t owner = holder(device).uid;
    return owner == 0 || owner == geteuid() ? -EBUSY : 0;
}

int claim_holder(const char *device) {
    return holder(device).pid;
}
