#include "switch/background.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace live {

namespace {

int ready_end = -1; // of the pipe to the first process
int log_file = -1;
int nothing = -1;

// The pipe closes without a word where the switch could not be: it has said why.
[[noreturn]] void await(int fd, pid_t child) {
    char word;
    if (read(fd, &word, 1) == 1) {
        std::printf("%d\n", child);
        std::fflush(stdout);
        std::_Exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::_Exit(WIFEXITED(status) && WEXITSTATUS(status) != 0 ? WEXITSTATUS(status) : 1);
}

std::string failed(const std::string &what) {
    return what + ": " + std::strerror(errno);
}

} // namespace

std::string go_to_background(const std::string &log) {
    const std::string path = log.empty() ? "/dev/null" : log;
    log_file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (log_file < 0)
        return failed("the log '" + path + "'");
    nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    std::array<int, 2> ends{};
    if (nothing < 0 || pipe2(ends.data(), O_CLOEXEC) != 0)
        return failed("the background");
    pid_t child = fork();
    if (child < 0)
        return failed("the background");
    if (child > 0) {
        close(ends[1]);
        await(ends[0], child);
    }
    close(ends[0]);
    ready_end = ends[1];
    setsid();
    std::signal(SIGPIPE, SIG_IGN); // of the first process, where that has gone
    return "";
}

bool is_ready() {
    std::fflush(nullptr);
    dup2(nothing, STDIN_FILENO);
    dup2(log_file, STDOUT_FILENO);
    dup2(log_file, STDERR_FILENO);
    close(nothing);
    close(log_file);
    bool is_awaited = write(ready_end, "", 1) == 1;
    close(ready_end);
    return is_awaited;
}

} // namespace live
