#include "switch/control_socket.h"

#include "explain/stream.h"
#include "machine/unix_listener.h"
#include "switch/live_switch.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace live {

namespace {

constexpr std::size_t LINE_MAX_LENGTH = 4096;

std::string served; // the path, for the end

bool address_of(const std::string &path, sockaddr_un &address) {
    address = {.sun_family = AF_UNIX, .sun_path = {}};
    if (path.size() >= sizeof(address.sun_path))
        return false;
    path.copy(address.sun_path, path.size());
    return true;
}

bool write_all(int fd, const std::string &text) {
    for (std::size_t at = 0; at < text.size();) {
        ssize_t written = send(fd, text.data() + at, text.size() - at, MSG_NOSIGNAL);
        if (written <= 0)
            return false;
        at += static_cast<std::size_t>(written);
    }
    return true;
}

std::string read_line(int fd) {
    std::string line;
    char byte;
    while (line.size() < LINE_MAX_LENGTH && read(fd, &byte, 1) == 1 && byte != '\n')
        line += byte;
    return line;
}

void trace(int fd, const std::string &line) {
    std::string wrong = explain::trace_stream(fd, line);
    write_all(fd, wrong + (wrong.empty() ? "ok\n" : "error\n"));
    close(fd);
}

void answer(int fd) {
    // A client that says nothing does not keep others waiting for ever.
    timeval patience{.tv_sec = 5, .tv_usec = 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    std::string line = read_line(fd);
    if (explain::trace_is_order(line)) {
        // It may last: others are answered meanwhile.
        std::thread(trace, fd, line).detach();
        return;
    }
    bool ok = false;
    std::string reply = command(line, &ok);
    if (!reply.empty() && reply.back() != '\n')
        reply += '\n';
    write_all(fd, reply + (ok ? "ok\n" : "error\n"));
    close(fd);
}

// The last line says how it went, and with that where the others belong. A trace is printed as it
// comes.
int print_reply(int fd, bool as_it_comes) {
    std::string held;
    char buffer[4096];
    for (ssize_t length; (length = read(fd, buffer, sizeof(buffer))) > 0;) {
        held.append(buffer, static_cast<std::size_t>(length));
        std::size_t last = held.rfind('\n', held.size() < 2 ? 0 : held.size() - 2);
        if (!as_it_comes || last == std::string::npos)
            continue;
        std::fwrite(held.data(), 1, last + 1, stdout);
        std::fflush(stdout);
        held.erase(0, last + 1);
    }
    close(fd);
    bool ok = held == "ok\n" || held.ends_with("\nok\n");
    held.resize(held.size() - std::min(held.size(), ok ? std::size_t{3} : std::size_t{6}));
    std::fputs(held.c_str(), ok ? stdout : stderr);
    return ok ? 0 : 1;
}

} // namespace

std::string control_serve(const std::string &path) {
    int fd = -1;
    if (std::string wrong = machine::listen_at(path, SOCK_STREAM, fd); !wrong.empty())
        return "control socket '" + path + "': " + wrong;
    served = path;
    std::thread([fd] {
        for (;;)
            if (int client = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC); client >= 0)
                answer(client);
    }).detach();
    return "";
}

void control_end() {
    if (!served.empty())
        unlink(served.c_str());
}

int control_ask(const std::string &path, const std::string &line) {
    sockaddr_un address;
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (!address_of(path, address) ||
        connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        !write_all(fd, line + "\n")) {
        std::fprintf(stderr, "tarn-switch: no switch answers at '%s' (%s)\n", path.c_str(),
                     std::strerror(errno));
        return 2;
    }
    return print_reply(fd, explain::trace_is_order(line));
}

} // namespace live
