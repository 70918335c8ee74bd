#include "switch/control_socket.h"

#include "explain/stream.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace live {

namespace {

constexpr std::size_t LINE_MAX_LENGTH = 32768; // a jumbo frame in words
constexpr std::size_t TRACE_AT_ONCE = 65536;
constexpr timeval PATIENCE{.tv_sec = 5, .tv_usec = 0};

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

// One line, then its reply, of which as much waits as the client has not read.
class Client : public machine::unix_client {
public:
    Client(machine::event_loop &loop, int fd, std::function<void()> leave, Command command)
        : unix_client(fd), command_(command), leave_(std::move(leave)),
          buffers_(bufferevent_socket_new(loop.base(), fd, 0)),
          events_there_(loop, [this] { write_trace(); }),
          time_is_up_(loop, [this] { end_trace(); }) {
        bufferevent_setcb(buffers_, on_read, on_written, on_end, this);
        bufferevent_setwatermark(buffers_, EV_READ, 0, LINE_MAX_LENGTH);
        bufferevent_set_timeouts(buffers_, &PATIENCE, &PATIENCE);

        bufferevent_enable(buffers_, EV_READ);
    }
    ~Client() override {
        trace_.reset();
        bufferevent_setfd(buffers_, -1); // what is freed within its own call forgets it later only
        bufferevent_free(buffers_);
    }

private:
    static void on_read(bufferevent *, void *self) { static_cast<Client *>(self)->read(); }
    static void on_written(bufferevent *, void *self) { static_cast<Client *>(self)->written(); }
    static void on_end(bufferevent *, short what, void *self) {
        static_cast<Client *>(self)->end(what);
    }

    evbuffer *input() { return bufferevent_get_input(buffers_); }
    bool is_all_written() { return evbuffer_get_length(bufferevent_get_output(buffers_)) == 0; }

    void forget_input() { evbuffer_drain(input(), evbuffer_get_length(input())); }

    void read() {
        if (trace_)
            return forget_input();
        evbuffer_ptr end = evbuffer_search_eol(input(), nullptr, nullptr, EVBUFFER_EOL_LF);
        if (end.pos >= 0 || evbuffer_get_length(input()) >= LINE_MAX_LENGTH)
            serve(end.pos);
    }

    // The line ends there, or (-1) is all that has come.
    void serve(ssize_t end) {
        std::size_t there = evbuffer_get_length(input());
        std::string line(end >= 0 ? static_cast<std::size_t>(end) : there, '\0');
        evbuffer_remove(input(), line.data(), line.size());
        forget_input();
        if (explain::trace_is_order(line))
            return start_trace(line);
        bool ok = false;
        std::string reply = command_(line, &ok);
        if (!reply.empty() && reply.back() != '\n')
            reply += '\n';
        finish(reply, ok);
    }

    void finish(const std::string &reply, bool ok) {
        trace_.reset();
        is_answered_ = true;
        bufferevent_disable(buffers_, EV_READ);
        write(reply + (ok ? "ok\n" : "error\n"));
    }

    void write(const std::string &text) { bufferevent_write(buffers_, text.data(), text.size()); }

    void written() {
        if (is_answered_)
            leave_();
        else if (trace_)
            write_trace();
    }

    // A client that traces says nothing more: what can still be read of it is that it has gone.
    void start_trace(const std::string &line) {
        explain::Order order;
        std::string wrong = explain::parse_order(line, order);
        if (!wrong.empty())
            return finish(wrong, false);
        bufferevent_set_timeouts(buffers_, nullptr, &PATIENCE);
        trace_ = std::make_unique<explain::TraceStream>(order, [this] { events_there_.wake(); });
        if (order.seconds != 0)
            time_is_up_.on_after(std::chrono::seconds(order.seconds));
    }

    // Before more is taken, all of it has to be read.
    void write_trace() {
        if (!trace_ || !is_all_written())
            return;
        std::string lines = trace_->take(TRACE_AT_ONCE);
        if (trace_->has_ended())
            finish(lines, true);
        else if (!lines.empty())
            write(lines);
    }

    void end_trace() {
        if (trace_)
            finish(trace_->take(TRACE_AT_ONCE), true);
    }

    // A line may end with what its client says at all.
    void end(short what) {
        if ((what & BEV_EVENT_EOF) && !trace_ && !is_answered_)
            serve(-1);
        else
            leave_();
    }

    Command command_;
    std::function<void()> leave_;
    bufferevent *buffers_;
    machine::event_watch events_there_, time_is_up_;
    std::unique_ptr<explain::TraceStream> trace_;
    bool is_answered_ = false; // when all is written it is over
};

machine::unix_server server(SOCK_STREAM);

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

machine::make_client control_clients(Command command) {
    return [command](machine::event_loop &loop, int fd, std::function<void()> leave) {
        return std::make_unique<Client>(loop, fd, std::move(leave), command);
    };
}

std::string control_serve(const std::string &path, Command command) {
    std::string wrong = server.serve(path, control_clients(command));
    return wrong.empty() ? "" : "control socket '" + path + "': " + wrong;
}

void control_end() {
    server.end();
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
