// tarnctl: configures the switch and shows what it does.
#include "explain/kernel_trace.h"
#include "tarnctl/help.h"
#include "tarnctl/options.h"
#include "tarnctl/session.h"
#include "tarnctl/table.h"
#include "tarnctl/views.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <thread>
#include <unistd.h>

namespace {

using namespace tarnctl;

// What was to be said cannot be: nothing that follows can be, either.
struct OutputError : std::exception {
    explicit OutputError(std::string text) : text_(std::move(text)) {}
    const char *what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

void complain(const std::string &what) {
    std::fflush(stdout);
    std::fprintf(stderr, "tarnctl: %s\n", what.c_str());
}

void print(const std::string &text) {
    bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!written || std::fflush(stdout) != 0)
        throw OutputError(std::string("the output cannot be written: ") + std::strerror(errno));
}

// The ends are found when a line needs them, and kept.
struct Ends {
    Settings settings;
    std::unique_ptr<client::Client> client = nullptr;
    std::unique_ptr<ProcTree> proc = nullptr;
};

constexpr const char *KERNEL_SOCKETS = "/proc/net/tarn_sockets";

// The kernel's where its module is loaded, unless a control socket is named.
bool is_kernel(const std::string &control) {
    return control.empty() && !std::getenv("TARN_CONTROL") && access(KERNEL_SOCKETS, R_OK) == 0;
}

std::string sockets(const std::string &control) {
    if (!is_kernel(control))
        return control_ask(control_path(control), "show sockets");
    std::ifstream file(KERNEL_SOCKETS);
    return {std::istreambuf_iterator<char>(file), {}};
}

void follow(const std::string &control, const std::string &line) {
    if (!is_kernel(control))
        return control_follow(control_path(control), line, print);
    explain::Order order;
    std::string wrong = explain::parse_order(line, order);
    if (wrong.empty() && explain::kernel_trace_folder().empty())
        wrong = "the event tarn:redirect is not to be seen; mount tracefs at /sys/kernel/tracing, "
                "and be root";
    if (wrong.empty())
        wrong = explain::kernel_trace(explain::kernel_trace_folder(), order, print);
    if (!wrong.empty())
        throw ProcError(wrong.substr(0, wrong.find_last_not_of('\n') + 1));
}

std::string explain_frame(const std::string &control, const std::string &order) {
    if (is_kernel(control))
        throw ProcError("a kernel is not copied to try a frame on it. 'tarn-replay --frame HEX "
                        "--config FILE' tells it of a switch that the same words make, 'tarnctl "
                        "trace' of frames as they come");
    return control_ask(control_path(control), order);
}

Session session_of(Ends &ends) {
    return {.client = [&ends]() -> client::Client & {
                if (!ends.client)
                    ends.client = client::find(ends.settings.socket);
                return *ends.client;
            },
            .proc = [&ends]() -> ProcTree & {
                if (!ends.proc)
                    ends.proc = find_proc(ends.settings.proc, ends.settings.control);
                return *ends.proc;
            },
            .chip =
                [&ends](const std::string &line) {
                    if (is_kernel(ends.settings.control) && has_kernel_chip())
                        return kernel_chip_ask(line);
                    return control_ask(control_path(ends.settings.control), "chip " + line);
                },
            .sockets = [&ends] { return sockets(ends.settings.control); },
            .follow = [&ends](const std::string &order) { follow(ends.settings.control, order); },
            .print = print,
            .explain =
                [&ends](const std::string &order) {
                    return explain_frame(ends.settings.control, order);
                },
            .json = ends.settings.json};
}

// Where there is none at the end of the time, the last look says so.
void wait_for_switch(Ends &ends) {
    const auto last = std::chrono::steady_clock::now() + std::chrono::seconds(ends.settings.wait);
    while (!ends.client) {
        bool is_last = std::chrono::steady_clock::now() >= last;
        try {
            ends.client = client::find(ends.settings.socket);
        } catch (const client::Error &) {
            if (is_last)
                throw;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
}

int batch(Session &session, const Settings &settings) {
    if (settings.batch == "-")
        return run_batch(session, std::cin, "-", settings.force, complain);
    std::ifstream file(settings.batch);
    if (!file) {
        complain("the batch '" + settings.batch + "' cannot be read");
        return WRONG;
    }
    return run_batch(session, file, settings.batch, settings.force, complain);
}

int offer(Session &session, const Words &words) {
    Known known;
    for (const auto &[name, ifindex] : listed(session))
        known.interfaces.push_back(name);
    try {
        known.redirects = read_redirects(session.proc()).all();
    } catch (const ProcError &) {
    }
    for (const std::string &word : complete(words, known))
        print(word + "\n");
    return DONE;
}

// What the build asks for, and the shell.
bool special(const Words &words, Session &session, int &status) {
    status = DONE;
    if (words[0] == "--manual")
        print(manual());
    else if (words[0] == "--completion")
        print(completion_script());
    else if (words[0] == "--complete")
        status = offer(session, {words.begin() + 1, words.end()});
    else
        return false;
    return true;
}

int run(const Words &words) {
    Ends ends;
    Session session = session_of(ends);
    int status;
    if (!words.empty() && special(words, session, status))
        return status;
    ends.settings = read_options(words);
    session.json = ends.settings.json;
    session.replace = ends.settings.replace;
    session.statistics = ends.settings.statistics;
    session.brief = ends.settings.brief;
    session.colours = ends.settings.colours;
    session.width = terminal_width();
    if (ends.settings.version) {
        print("tarnctl " TARN_VERSION "\n");
        return DONE;
    }
    if (ends.settings.help) {
        print(help(ends.settings.words));
        return DONE;
    }
    if (ends.settings.wait != 0)
        wait_for_switch(ends);
    if (!ends.settings.batch.empty())
        return batch(session, ends.settings);
    if (ends.settings.words.empty() && ends.client)
        return DONE;
    if (ends.settings.words.empty()) {
        complain("no words; 'tarnctl --help' lists them");
        return WRONG;
    }
    std::string wrong;
    int result = run_words(session, ends.settings.words, wrong);
    if (result != DONE)
        complain(wrong);
    return result;
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception &error) {
        complain(error.what());
        return WRONG;
    }
}
