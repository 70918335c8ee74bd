#include "explain/kernel_trace.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace explain {

namespace {

constexpr const char *EVENT = "/events/tarn/redirect/enable";

volatile std::sig_atomic_t interrupted = 0;

std::string failed(const std::string &path) {
    return path + ": " + std::strerror(errno);
}

bool write_word(const std::string &path, char word) {
    int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    bool written = fd >= 0 && write(fd, &word, 1) == 1;
    int error = errno;
    if (fd >= 0)
        close(fd);
    errno = error;
    return written;
}

// Whoever ends the program ends the watching first.
class Interrupts {
public:
    Interrupts() {
        struct sigaction action {};
        action.sa_handler = [](int) { interrupted = 1; };
        for (std::size_t i = 0; i < 2; i++)
            sigaction(SIGNALS[i], &action, &old_[i]);
    }
    ~Interrupts() {
        for (std::size_t i = 0; i < 2; i++)
            sigaction(SIGNALS[i], &old_[i], nullptr);
    }
    Interrupts(const Interrupts &) = delete;
    Interrupts &operator=(const Interrupts &) = delete;

private:
    static constexpr int SIGNALS[] = {SIGINT, SIGTERM};
    struct sigaction old_[2]{};
};

// Prints the whole lines of `held` that are wanted, and takes them out.
unsigned long print_lines(std::string &held, const Order &order, unsigned long rest,
                          const std::function<void(const std::string &line)> &print) {
    unsigned long printed = 0;
    std::size_t at = 0, end;
    while ((order.count == 0 || printed < rest) &&
           (end = held.find('\n', at)) != std::string::npos) {
        std::optional<Event> event = parse_trace_line(held.substr(at, end - at));
        at = end + 1;
        if (!event || !order.filter.wants(*event))
            continue;
        print((order.json ? json_of(*event) : line_of(*event)) + "\n");
        printed++;
    }
    held.erase(0, at);
    return printed;
}

void follow(int pipe, const Order &order,
            const std::function<void(const std::string &line)> &print) {
    using clock = std::chrono::steady_clock;
    const auto end = clock::now() + std::chrono::seconds(order.seconds);
    std::string held;
    unsigned long printed = 0;
    while (!interrupted && (order.count == 0 || printed < order.count) &&
           (order.seconds == 0 || clock::now() < end)) {
        pollfd waiting{.fd = pipe, .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, 100) <= 0)
            continue;
        char buffer[4096];
        ssize_t length = read(pipe, buffer, sizeof(buffer));
        if (length > 0)
            held.append(buffer, static_cast<std::size_t>(length));
        printed += print_lines(held, order, order.count - printed, print);
    }
}

} // namespace

std::string kernel_trace_folder() {
    for (const char *folder : {"/sys/kernel/tracing", "/sys/kernel/debug/tracing"})
        if (access((folder + std::string(EVENT)).c_str(), F_OK) == 0)
            return folder;
    return "";
}

std::string kernel_trace(const std::string &folder, const Order &order,
                         const std::function<void(const std::string &line)> &print) {
    const std::string file = folder + "/trace_pipe";
    int pipe = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (pipe < 0)
        return failed(file);
    Interrupts interrupts;
    std::string wrong;
    if (write_word(folder + EVENT, '1'))
        follow(pipe, order, print);
    else
        wrong = failed(folder + EVENT);
    write_word(folder + EVENT, '0');
    close(pipe);
    return wrong;
}

} // namespace explain
