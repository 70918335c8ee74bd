// A thread that serves all who connect to a Unix socket. Nobody there waits for another: a client
// is served one message at a time, in turn with the others; who does not read has as much waiting
// as its socket takes, and what that means is the client's kind to say. Where no descriptor is
// left, whoever else connects waits.
#pragma once

#include "machine/event_loop.h"
#include "machine/unix_listener.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace machine {

// One who has connected. Lives where the loop runs, watches its descriptor, which does not block,
// and leaves as the last thing that it does in a call.
class unix_client {
public:
    explicit unix_client(int fd) : fd_(fd) {}
    virtual ~unix_client(); // the descriptor outlives whatever else there is of a client
    unix_client(const unix_client &) = delete;
    unix_client &operator=(const unix_client &) = delete;

protected:
    int fd() const { return fd_; }

private:
    int fd_;
};

// `leave` ends the client that it was given to.
using make_client = std::function<std::unique_ptr<unix_client>(event_loop &loop, int fd,
                                                               std::function<void()> leave)>;

class unix_clients {
public:
    unix_clients(event_loop &loop, make_client make) : loop_(loop), make_(std::move(make)) {}
    void add(int fd);
    bool empty() const { return clients_.empty(); }

private:
    event_loop &loop_;
    make_client make_;
    unsigned long last_ = 0;
    std::map<unsigned long, std::unique_ptr<unix_client>> clients_;
};

class unix_server {
public:
    // The type is SOCK_SEQPACKET or SOCK_STREAM.
    explicit unix_server(int type);
    ~unix_server();

    // "" or what failed, in words. Once at a time.
    std::string serve(const std::string &path, make_client make);
    // Ends all clients, whatever they have not read, and takes the socket away; does nothing where
    // none is served.
    void end();

private:
    class service;

    int type_;
    std::unique_ptr<service> service_;
    std::thread thread_;
};

} // namespace machine
