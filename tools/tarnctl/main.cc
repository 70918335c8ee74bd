// tarnctl: configures the switch and shows what it does.
#include "tarnctl/help.h"
#include "tarnctl/options.h"
#include "tarnctl/session.h"
#include "tarnctl/views.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>

namespace {

using namespace tarnctl;

void complain(const std::string &what) {
    std::fflush(stdout);
    std::fprintf(stderr, "tarnctl: %s\n", what.c_str());
}

void print(const std::string &text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

// The ends are found when a line needs them, and kept.
struct Ends {
    Settings settings;
    std::unique_ptr<client::Client> client = nullptr;
    std::unique_ptr<ProcTree> proc = nullptr;
};

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
                    return control_ask(control_path(ends.settings.control), "chip " + line);
                },
            .print = print,
            .json = ends.settings.json};
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
    if (ends.settings.help) {
        print(help(ends.settings.words));
        return DONE;
    }
    if (!ends.settings.batch.empty())
        return batch(session, ends.settings);
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
