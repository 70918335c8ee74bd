#include "machine/unix_listener.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace machine {

namespace {

constexpr int BACKLOG = 64;
constexpr mode_t OWNER = 0600, OWNER_AND_GROUP = 0660;

std::optional<gid_t> group;

const sockaddr *generic(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

// Refused is what nobody serves; another's, or one of another type, is served.
bool is_served(const sockaddr_un &address, int type) {
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    bool refused = connect(fd, generic(address), sizeof(address)) != 0 && errno == ECONNREFUSED;
    close(fd);
    return !refused;
}

std::string make_room(const sockaddr_un &address, int type) {
    struct stat here;
    if (lstat(address.sun_path, &here) != 0)
        return "";
    if (!S_ISSOCK(here.st_mode))
        return "there is something else, which is no socket; choose another path";
    if (is_served(address, type))
        return "another switch serves it; stop it, or choose another";
    return unlink(address.sun_path) == 0 ? "" : std::strerror(errno);
}

// It is its owner's from its first moment; nobody can connect before it listens.
bool open_at(int fd, const sockaddr_un &address) {
    if (fd < 0 || fchmod(fd, OWNER) != 0 || bind(fd, generic(address), sizeof(address)) != 0)
        return false;
    if (group && (lchown(address.sun_path, static_cast<uid_t>(-1), *group) != 0 ||
                  chmod(address.sun_path, OWNER_AND_GROUP) != 0))
        return false;
    return listen(fd, BACKLOG) == 0;
}

} // namespace

void let_in(gid_t more) {
    group = more;
}

std::optional<gid_t> let_in() {
    return group;
}

std::string listen_at(const std::string &path, int type, int &fd) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    if (path.empty() || path.size() >= sizeof(address.sun_path))
        return "the path must have 1 to 107 characters";
    path.copy(address.sun_path, path.size());
    if (std::string wrong = make_room(address, type); !wrong.empty())
        return wrong;
    fd = socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (open_at(fd, address))
        return "";
    std::string wrong = std::strerror(errno);
    close(fd);
    return wrong;
}

} // namespace machine
