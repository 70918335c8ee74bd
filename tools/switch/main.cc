#include "machine/netlink_server.h"
#include "machine/socket_server.h"
#include "machine/unix_listener.h"
#include "switch/background.h"
#include "switch/control_socket.h"
#include "switch/live_switch.h"
#include "switch/options.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <sys/resource.h>

namespace {

int fail(const std::string &what) {
    std::fprintf(stderr, "tarn-switch: %s%s", what.c_str(),
                 what.empty() || what.back() != '\n' ? "\n" : "");
    return 1;
}

// Before any thread is made, so that all of them leave these signals to main.
sigset_t block_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// Each client and each protocol socket of a daemon is a descriptor here. "", or why there are too
// few to begin with: those who come later wait for one.
std::string allow_many_descriptors() {
    constexpr rlim_t NEEDED = 64;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_max >= NEEDED
               ? ""
               : fmt::format("only {} files may be open at once (ulimit -n); a switch needs {}",
                             limit.rlim_max, NEEDED);
}

// The control family comes last: who finds it there finds all.
std::string begin(const live::Options &options) {
    std::string wrong = live::start(options);
    if (wrong.empty() && !options.control.empty())
        wrong = live::control_serve(options.control, live::command);
    if (wrong.empty() && !options.sockets.empty())
        wrong = machine::sockets_serve(options.sockets);
    if (wrong.empty() && !options.netlink.empty())
        wrong = machine::netlink_serve(options.netlink);
    return wrong;
}

[[noreturn]] void end(int status) {
    machine::netlink_end();
    machine::sockets_end();
    live::control_end();
    live::stop();
    if (status == 0)
        std::puts("stopped");
    std::fflush(nullptr);
    std::_Exit(status); // threads of the homes run on to the last
}

int run(const live::Options &options) {
    if (std::string wrong = allow_many_descriptors(); !wrong.empty())
        return fail(wrong);
    if (options.daemon)
        if (std::string wrong = live::go_to_background(options.log); !wrong.empty())
            return fail(wrong);
    sigset_t signals = block_signals();
    if (std::string wrong = begin(options); !wrong.empty())
        end(fail(wrong));
    if (!options.daemon)
        std::puts("running");
    else if (!live::is_ready())
        end(fail("nobody waits for it any more"));
    std::fflush(stdout);
    int signal;
    sigwait(&signals, &signal);
    end(0);
}

} // namespace

// What is thrown past here ends the process with its text, as it should.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char **argv) {
    live::Options options;
    std::vector<std::string> ports, vlans;
    CLI::App app{
        "A live switch: the forwarding core, a switching chip in software under it, and the\n"
        "machine's IP stack above it. Runs until SIGTERM; prints \"running\" when it is up."};
    app.name("tarn-switch");
    app.set_version_flag("--version,-V", "tarn-switch " TARN_VERSION);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return std::string("tarn-switch: ") + error.what() + "; 'tarn-switch --help' tells more\n";
    });
    app.add_flag("--daemon", options.daemon,
                 "returns when the switch is up, which runs on in the background; prints the\n"
                 "number of its process. Fails as the switch would");
    CLI::Option *log =
        app.add_option("--log", options.log, "of --daemon: the file that what it says goes to")
            ->type_name("FILE");
    log->needs("--daemon");
    app.add_option("--port", ports, "a port of the switch on a device of the machine")
        ->type_name("NAME=DEVICE");
    app.add_option("--vlan", vlans, "a VLAN with its interface vlanVID, and its ports")
        ->type_name("VID=PORT[:tagged],...");
    app.add_option("--address", options.address, "MAC address of the VLAN interfaces")
        ->capture_default_str();
    app.add_option("--chip", options.chip, "a line for the chip, in its own words ('help')")
        ->type_name("WORDS");
    app.add_option("--enable", options.enable, "turns a redirect on")->type_name("NAME");
    app.add_option("--disable", options.disable, "turns a redirect off")->type_name("NAME");
    app.add_option("--control", options.control, "serves commands on a Unix socket at this path")
        ->type_name("PATH");
    app.add_option("--netlink", options.netlink,
                   "serves the control family (netlink) on a Unix socket at this path")
        ->type_name("PATH");
    app.add_option(
           "--sockets", options.sockets,
           "serves the protocol sockets on a Unix socket at this path, for daemons that run\n"
           "with LD_PRELOAD=libtarn_preload.so TARN_SOCKETS=PATH")
        ->type_name("PATH");
    app.add_option("--proc", options.proc,
                   "mounts at this path what the kernel module has as /proc/tarn (FUSE)")
        ->type_name("PATH");
    app.add_option("--group", options.group,
                   "lets the members of this group, too, reach those sockets and files, which are\n"
                   "for the owner of the process alone unless this is given")
        ->type_name("NAME");
    app.add_option("--config", options.config,
                   "runs a batch of tarnctl when the ports and VLANs above are there")
        ->type_name("FILE")
        ->check(CLI::ExistingFile);
    app.add_flag("--devices-in-process", options.devices_in_process,
                 "makes no TAP devices: what goes to the IP stack ends in the process");
    app.add_option("--debug", options.debug_log, "logs frames: 1 received, 2 sent, 3 both")
        ->check(CLI::Range(0, 3));

    std::string path, line;
    CLI::App *ask =
        app.add_subcommand("ask", "sends one line to a running switch's control socket");
    ask->add_option("PATH", path)->required();
    ask->add_option(
           "LINE", line,
           "'show interfaces', 'show sockets', 'show counters', 'proc read ifdb', 'chip show', ...")
        ->required();

    try {
        app.parse(argc, argv);
        for (const std::string &port : ports)
            options.ports.push_back(live::parse_port(port));
        for (const std::string &vlan : vlans)
            options.vlans.push_back(live::parse_vlan(vlan));
        live::refuse_twice(options);
        if (!options.group.empty())
            machine::let_in(live::parse_group(options.group));
    } catch (const CLI::ParseError &error) {
        int result = app.exit(error);
        return result == 0 ? 0 : 2;
    }
    if (ask->parsed())
        return live::control_ask(path, line);
    if (options.ports.empty() && options.netlink.empty() && options.config.empty())
        return fail("no port: give at least one --port NAME=DEVICE, or --netlink or --config, by "
                    "which tarnctl declares them");
    return run(options);
}
