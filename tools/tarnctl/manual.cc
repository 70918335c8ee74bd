#include "tarnctl/help.h"
#include "tarnctl/options.h"

#include <fmt/format.h>

namespace tarnctl {

namespace {

// A hyphen is a minus, and no line starts a request by chance.
std::string troff(std::string_view text) {
    std::string escaped;
    for (char byte : text) {
        if (byte == '\\' || byte == '-')
            escaped += '\\';
        if (byte == '\\') {
            escaped += 'e';
            continue;
        }
        if (escaped.empty() && (byte == '.' || byte == '\''))
            escaped += "\\&";
        escaped += byte;
    }
    return escaped;
}

std::string manual_row(const Subcommand &row) {
    std::string text = fmt::format(".TP\n.B {}\n{}\n", troff(usage(row)), troff(row.help));
    std::string arguments;
    for (const Argument &argument : row.arguments)
        if (std::string label = argument_label(argument); !label.empty())
            arguments +=
                fmt::format(".TP\n.I {}\n{}\n", troff(label), troff(argument_help(argument)));
    if (!arguments.empty())
        text += ".RS\n" + arguments + ".RE\n";
    if (!row.example.empty())
        text += fmt::format(".RS\n.PP\n.EX\ntarnctl {}\n.EE\n.RE\n", troff(row.example));
    return text;
}

constexpr std::string_view FIRST_STEPS =
    R"(link add port port1 ifindex 5001 mac 02:00:00:00:01:01 up running
link add port port2 ifindex 5002 mac 02:00:00:00:01:02 up running
link add lag lag1 ifindex 4501 mac 02:00:00:00:02:01 mode static
vlan add 10,20
lag attach port1 lag1
lag attach port2 lag1
vlan member add lag1 10,20 tagged
stp state port1 forwarding instance all
stp state port2 blocking instance all
show interfaces
stp show port2
)";

constexpr std::string_view LAST_STEPS = R"(lag detach port1 lag1
lag detach port2 lag1
vlan member del lag1 10,20
lag del lag1
vlan del 10,20
link del port1
link del port2
)";

std::string manual_end() {
    std::string text = ".SH ERRORS\nAn error says which argument was wrong and what was expected, "
                       "or what the switch "
                       "answered, in words and as the number: an errno, a bare \\-1, or one of its "
                       "own from \\-201 "
                       "to \\-226.\n";
    text +=
        ".SH EXIT STATUS\n0 when all was done, 1 when the switch refused something, 2 when words "
        "were wrong or no switch answered.\n";
    text +=
        ".SH WHAT STANDS\nBefore a command that would change what stands the switch is asked. What "
        "is so already is left as it is, and said (exit status 0): a batch that is said twice "
        "changes nothing the second time. What contradicts is refused, with what stands there; "
        "\\-\\-replace takes that away first.\n";
    text += ".SH BATCHES\nA batch is a file of lines, each what would stand behind "
            "\\(lqtarnctl\\(rq. Blank lines and what follows a # are passed over; \\(dq\\(dq and "
            "\\(aq\\(aq "
            "hold words together. It ends at the first line that fails, and says its number; with "
            "\\-\\-force it goes on, and the exit status tells of the first failure.\n";
    text += fmt::format(
        ".SH EXAMPLES\nAn aggregator of two ports in two VLANs, one port of it blocked by spanning "
        "tree, as a batch:\n.PP\n.EX\n{}.EE\n.PP\nand away again:\n.PP\n.EX\n{}.EE\n",
        troff(FIRST_STEPS), troff(LAST_STEPS));
    return text;
}

} // namespace

std::string manual() {
    std::string text =
        ".\\\" Written by the build from the table that tarnctl --help is made of.\n"
        ".TH TARNCTL 8 \"\" \"tarnfwd\" \"Layer 2 switch\"\n"
        ".SH NAME\ntarnctl \\- configure the switch and show what it does\n"
        ".SH SYNOPSIS\n.B tarnctl\n[\\fIOPTIONS\\fR] \\fIWORDS\\fR...\n.br\n.B tarnctl\n"
        "[\\fIOPTIONS\\fR] \\-\\-batch \\fIFILE\\fR\n"
        ".SH DESCRIPTION\nSends one command of the switch's control family, or reads and writes "
        "its "
        "proc tree. The switch is the kernel's (the module tarnfwd) or one that runs as a process "
        "(tarn\\-switch).\n.SH OPTIONS\n";
    for (const Option &option : options())
        text += fmt::format(".TP\n.B {}\n{}\n", troff(option_label(option)), troff(option.help));
    text += ".SH COMMANDS\n";
    for (const Topic &topic : topics()) {
        text += fmt::format(".SS {}: {}\n", troff(topic.word), troff(topic.help));
        for (const Subcommand *row : rows_under({std::string(topic.word)}))
            text += manual_row(*row);
    }
    return text + manual_end();
}

} // namespace tarnctl
