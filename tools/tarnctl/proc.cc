#include "tarnctl/proc.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <future>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace tarnctl {

namespace {

constexpr const char *PROC_PATH = "/proc/tarn";
constexpr const char *CONTROL_PATH = "/run/tarn/control";
constexpr const char *KERNEL_CHIP = "/proc/tarn_chip";

std::string failed(const std::string &what) {
    return fmt::format("{}: {}", what, std::strerror(errno));
}

std::string control_name(const std::string &path) {
    return "the control socket '" + path + "'";
}

struct File {
    int fd;
    explicit File(int opened) : fd(opened) {}
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File() {
        if (fd >= 0)
            close(fd);
    }
};

[[noreturn]] void is_silent(const std::string &what) {
    throw ProcMissing(what + ": the switch is there, but does not answer");
}

// A file of a switch that hangs holds whoever opens it for ever, and against signals: it is left to
// a thread, which ends with the process.
std::string within_patience(const std::string &what, std::function<std::string()> work) {
    std::packaged_task<std::string()> task(std::move(work));
    auto result = task.get_future();
    std::thread(std::move(task)).detach();
    if (result.wait_for(PATIENCE) != std::future_status::ready)
        is_silent(what);
    return result.get();
}

std::string read_all(int fd, const std::string &what) {
    std::string text;
    char buffer[4096];
    ssize_t length;
    while ((length = read(fd, buffer, sizeof(buffer))) > 0)
        text.append(buffer, static_cast<std::size_t>(length));
    if (length < 0 && errno == EAGAIN)
        is_silent(what);
    if (length < 0)
        throw ProcError(failed(what));
    return text;
}

class Folder : public ProcTree {
public:
    explicit Folder(std::string path) : path_(std::move(path)) {}
    std::string name() const override { return path_; }

    std::string read(const std::string &path) override {
        return within_patience(path_, [whole = path_ + "/" + path, what = what(path)] {
            File file(open(whole.c_str(), O_RDONLY | O_CLOEXEC));
            if (file.fd < 0)
                throw ProcError(failed(what));
            return read_all(file.fd, what);
        });
    }

    // In one piece: each write is a line of its own to the switch.
    void write(const std::string &path, const std::string &text) override {
        within_patience(path_, [whole = path_ + "/" + path, what = what(path), text] {
            File file(open(whole.c_str(), O_WRONLY | O_CLOEXEC));
            if (file.fd < 0 || ::write(file.fd, text.data(), text.size()) < 0)
                throw ProcError(failed(what));
            return std::string();
        });
    }

private:
    std::string what(const std::string &path) const {
        return fmt::format("the file '{}' of the proc tree at '{}'", path, path_);
    }

    std::string path_;
};

class Control : public ProcTree {
public:
    explicit Control(std::string path) : path_(std::move(path)) {}
    std::string name() const override { return "the control socket '" + path_ + "'"; }

    std::string read(const std::string &path) override {
        return control_ask(path_, "proc read " + path);
    }

    // A line: its end is not said.
    void write(const std::string &path, const std::string &text) override {
        std::string line = text.substr(0, text.find('\n'));
        control_ask(path_, "proc write " + path + " " + line);
    }

private:
    std::string path_;
};

// S_IFSOCK, S_IFDIR, ...; 0 for what is not there.
mode_t kind_of(const std::string &path) {
    std::string kind = within_patience(path, [path] {
        struct stat status;
        return stat(path.c_str(), &status) == 0 ? std::to_string(status.st_mode & S_IFMT) : "0";
    });
    return static_cast<mode_t>(std::stoul(kind));
}

bool is_socket(const std::string &path) {
    return kind_of(path) == S_IFSOCK;
}

bool is_file(const std::string &path) {
    return kind_of(path) == S_IFREG;
}

bool is_folder(const std::string &path) {
    return kind_of(path) == S_IFDIR;
}

std::unique_ptr<ProcTree> proc_at(const std::string &path) {
    if (is_socket(path))
        return proc_of_control(path);
    if (is_folder(path))
        return proc_folder(path);
    throw ProcMissing(fmt::format(
        "no proc tree: '{}' is neither a folder nor the control socket of tarn-switch", path));
}

std::string variable(const char *name) {
    const char *value = std::getenv(name);
    return value ? value : "";
}

// The socket, with the line said.
int control_say(const std::string &path, const std::string &line,
                std::chrono::milliseconds patience) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    std::string what = control_name(path);
    if (path.size() >= sizeof(address.sun_path))
        throw ProcMissing(what + ": the path is too long");
    path.copy(address.sun_path, path.size());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{.tv_sec = patience.count() / 1000,
                        .tv_usec = patience.count() % 1000 * 1000};
    for (int option : {SO_SNDTIMEO, SO_RCVTIMEO})
        setsockopt(fd, SOL_SOCKET, option, &limit, sizeof(limit));
    std::string said = line + "\n";
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 &&
        send(fd, said.data(), said.size(), MSG_NOSIGNAL) >= 0)
        return fd;
    bool silent = errno == EAGAIN;
    std::string wrong = failed(what);
    close(fd);
    if (silent)
        is_silent(what);
    throw ProcMissing(wrong);
}

// Whether the reply is whole: its last line says how it went, and is taken off.
bool is_whole(std::string &reply, const std::string &what) {
    for (const std::string end : {"ok\n", "error\n"}) {
        if (reply != end && !reply.ends_with("\n" + end))
            continue;
        reply.resize(reply.size() - end.size());
        if (end == "ok\n")
            return true;
        throw ProcError(reply.empty() ? what + " refused it"
                                      : reply.substr(0, reply.find_last_not_of('\n') + 1));
    }
    return false;
}

} // namespace

std::unique_ptr<ProcTree> proc_folder(const std::string &path) {
    return std::make_unique<Folder>(path);
}

std::unique_ptr<ProcTree> proc_of_control(const std::string &path) {
    return std::make_unique<Control>(path);
}

std::string control_ask(const std::string &path, const std::string &line,
                        std::chrono::milliseconds patience) {
    File file(control_say(path, line, patience));
    std::string what = control_name(path);
    std::string reply = read_all(file.fd, what);
    if (is_whole(reply, what))
        return reply;
    throw ProcError(what + ": the reply was cut off");
}

void control_follow(const std::string &path, const std::string &line,
                    const std::function<void(const std::string &text)> &print) {
    control_ask(path, "show sockets"); // a switch that hangs would be silent for ever
    File file(control_say(path, line, PATIENCE));
    const timeval for_ever{};
    setsockopt(file.fd, SOL_SOCKET, SO_RCVTIMEO, &for_ever, sizeof(for_ever));
    std::string what = control_name(path), held;
    char buffer[4096];
    for (ssize_t length; (length = read(file.fd, buffer, sizeof(buffer))) > 0;) {
        held.append(buffer, static_cast<std::size_t>(length));
        bool whole = is_whole(held, what);
        std::size_t end = whole ? held.size() : held.rfind('\n') + 1;
        print(held.substr(0, end));
        held.erase(0, end);
        if (whole)
            return;
    }
    throw ProcError(what + ": the switch has gone");
}

bool has_kernel_chip() {
    return is_file(KERNEL_CHIP);
}

// The reply stands in the open file, also that to a line that was refused.
std::string kernel_chip_ask(const std::string &line) {
    File file(open(KERNEL_CHIP, O_RDWR | O_CLOEXEC));
    bool ok = file.fd >= 0 && ::write(file.fd, line.data(), line.size()) >= 0;
    std::string wrong = failed("the chip of the kernel");
    std::string reply = file.fd >= 0 ? read_all(file.fd, "the chip of the kernel") : "";
    if (!ok)
        throw ProcError(reply.empty() ? wrong : reply.substr(0, reply.find_last_not_of('\n') + 1));
    return reply;
}

std::string control_path(const std::string &path) {
    if (!path.empty())
        return path;
    std::string given = variable("TARN_CONTROL");
    return given.empty() ? CONTROL_PATH : given;
}

std::unique_ptr<ProcTree> find_proc(const std::string &path, const std::string &control) {
    std::string given = path.empty() ? variable("TARN_PROC") : path;
    if (!given.empty())
        return proc_at(given);
    if (control.empty() && is_folder(PROC_PATH))
        return proc_folder(PROC_PATH);
    std::string socket_path = control_path(control);
    if (is_socket(socket_path))
        return proc_of_control(socket_path);
    throw ProcMissing(
        fmt::format("no proc tree; tried:\n  {}: not there\n  the control socket '{}': "
                    "not there",
                    PROC_PATH, socket_path));
}

} // namespace tarnctl
