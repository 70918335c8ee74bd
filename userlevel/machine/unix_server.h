// A thread that serves all who connect to a Unix socket, one message at a time.
//
// Connection(fd) owns the descriptor and is made, asked and ended on that thread; serve_one() is
// called when there is something to read, and says whether there is more to come.
#pragma once

#include "machine/unix_listener.h"

#include <cstddef>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace machine {

template <typename Connection>
class unix_server {
public:
    // "" or what failed, in words. Once at a time.
    std::string serve(const std::string &path) {
        if (std::string wrong = listen_at(path, SOCK_SEQPACKET, listener_); !wrong.empty())
            return wrong;
        path_ = path;
        stop_event_ = eventfd(0, EFD_CLOEXEC);
        thread_ = std::thread([this] { run(); });
        return "";
    }

    // Ends all connections and takes the socket away; does nothing where none is served.
    void end() {
        if (!thread_.joinable())
            return;
        eventfd_write(stop_event_, 1);
        thread_.join();
        close(stop_event_);
        close(listener_);
        unlink(path_.c_str());
    }

private:
    void run() {
        std::vector<std::unique_ptr<Connection>> connections;
        for (;;) {
            std::vector<pollfd> waiting{{.fd = stop_event_, .events = POLLIN, .revents = 0},
                                        {.fd = listener_, .events = POLLIN, .revents = 0}};
            const std::size_t first = waiting.size();
            for (const auto &each : connections)
                waiting.push_back({.fd = each->fd(), .events = POLLIN, .revents = 0});
            if (poll(waiting.data(), waiting.size(), -1) < 0)
                continue;
            if (waiting[0].revents)
                return;
            for (std::size_t i = connections.size(); i > 0; i--)
                if (waiting[first + i - 1].revents && !connections[i - 1]->serve_one())
                    connections.erase(connections.begin() + static_cast<std::ptrdiff_t>(i - 1));
            if (waiting[1].revents)
                accept_one(connections);
        }
    }

    void accept_one(std::vector<std::unique_ptr<Connection>> &connections) {
        int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0)
            connections.push_back(std::make_unique<Connection>(fd));
    }

    std::string path_;
    int listener_ = -1;
    int stop_event_ = -1;
    std::thread thread_;
};

} // namespace machine
