// tarn-replay: what the switch does with the frames of a capture.
#include "replay/replay.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace {

// What is about captures. With what a single frame comes to the CPU, and why, the chip says.
constexpr const char *OF_CAPTURES[] = {"--filter", "--frames",   "--code",  "--flags",
                                       "--extra",  "--rx-flags", "--queue", "--dates"};

constexpr int USAGE_ERROR = 2;

int run(int argc, char **argv) {
    replay::Options options;
    bool list = false;
    CLI::App app{"Offers each frame of a capture to the switch and tells what became of it.\n\n"
                 "Interface k of a file is port<k>. A frame's VLAN is that of its tag, else 1.\n"
                 "Every port is an untagged member of every VLAN that the files show.\n"
                 "The switch's clock goes by the times of the frames.\n"
                 "A capture is read to its end before the first frame is offered."};
    app.name("tarn-replay");
    app.set_version_flag("--version,-V", "tarn-replay " TARN_VERSION);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return std::string("tarn-replay: ") + error.what() + "; 'tarn-replay --help' tells more\n";
    });
    auto *file =
        app.add_option("FILE", options.files,
                       "captures to replay, one after the other: pcap or pcapng, Ethernet, "
                       "also compressed; -: standard input");
    app.add_option("--filter,-f", options.filter,
                   "offer only frames that match, such as 'ether proto 0x88cc' (pcap-filter(7))")
        ->type_name("WORDS");
    app.add_option("--frames", options.frames,
                   "tell only of these, such as 7 or 3,10-20,100-; limits count the others, too")
        ->type_name("NUMBERS");
    app.add_option("--config", options.config,
                   "makes the switch by a batch of tarnctl instead; interface k of the capture is "
                   "the port with ifindex 5000 + k")
        ->type_name("FILE")
        ->check(CLI::ExistingFile);
    app.add_flag("--list", list, "list the redirects in the order they are asked, and end");
    app.add_option("--enable", options.enable, "turn a redirect on (may be given again)")
        ->type_name("NAME")
        ->allow_extra_args(false);
    app.add_option("--disable", options.disable, "turn a redirect off (may be given again)")
        ->type_name("NAME")
        ->allow_extra_args(false);
    app.add_option("--code", options.code, "class of the CPU trap that each frame arrives with");
    app.add_option("--flags", options.flags, "trap flags, such as 0x40 for denial of service");
    app.add_option("--extra", options.extra, "argument of the trap");
    app.add_option("--rx-flags", options.rx_flags, "1: on a slave, for the master only")
        ->check(CLI::Range(0, 255));
    app.add_option("--queue", options.queue, "receive queue");
    app.add_flag("--json,-j", options.json, "one JSON object a line for each frame");
    app.add_flag("--color{always},-c{always}", options.colour,
                 "auto (on a terminal, unless NO_COLOR is set), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app.add_flag("--dates", options.dates, "when frames came, and not how long after the first");
    app.add_flag("--verbose,-v", options.verbose, "also the redirects that were asked and said no");
    app.add_flag("--explain", options.explain, "why: the rule that decided, and its numbers");
    app.add_flag("--debug", options.debug_log, "turn the core's frame log on, and show it");
    auto *frame = app.add_option("--frame", options.frame,
                                 "one frame in place of files, in hexadecimal digits: tells where "
                                 "it would go, through chip and core");
    frame->type_name("HEX")->excludes(file);
    app.add_option("--port", options.port, "where it comes in; else by the first port")
        ->type_name("NAME")
        ->needs(frame);
    try {
        app.parse(argc, argv);
        for (const char *option : OF_CAPTURES)
            if (frame->count() != 0 && app.count(option) != 0)
                throw CLI::ExcludesError("--frame", option);
        if (!list && options.frame.empty() && file->count() == 0)
            throw CLI::RequiredError("FILE");
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : USAGE_ERROR;
    }
    return list ? replay::list_redirects() : replay::replay(options);
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "tarn-replay: %s\n", error.what());
        return 1;
    }
}
