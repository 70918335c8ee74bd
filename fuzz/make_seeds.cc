// make-seeds FOLDER: what each target begins with, FOLDER/TARGET/NAME, made of the lists of cases
// that the tests have: every command, every frame of a protocol, every file, every line.
#include "control/nl_cases.h"
#include "support/frame_builder.h"
#include "tarnctl/cases.h"

#include "../lab/tests/proc_cases.h"
#include "../lab/tests/socket_cases.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::string folder;

void write(const std::string &target, const std::string &name, const Bytes &bytes) {
    static unsigned number = 0;
    std::filesystem::create_directories(folder + "/" + target);
    std::ofstream file(folder + "/" + target + "/" + std::to_string(++number) + "-" + name,
                       std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes text(const std::string &words) {
    return {words.begin(), words.end()};
}

// One step of the targets that take rows of them.
Bytes step(unsigned what, unsigned which, Bytes bytes) {
    if (bytes.size() > 255)
        bytes.resize(255);
    return Bytes{static_cast<u8>(what), static_cast<u8>(which), static_cast<u8>(bytes.size())} +
           bytes;
}

std::vector<Bytes> frames() {
    std::vector<Bytes> all;
    for (const receive_case &one : receive_cases) {
        unsigned char frame[256];
        unsigned length = case_frame(one.frame, frame);
        all.emplace_back(frame, frame + length);
    }
    for (u8 protocol : {1, 2, 6, 17, 89, 103, 112})
        all.push_back(Frame().ipv4({.protocol = protocol}).padded());
    all.push_back(Frame().to("01:00:5e:00:00:12").ipv4({.protocol = 112}).padded());
    all.push_back(
        Frame().to("ff:ff:ff:ff:ff:ff").type(0x0806).bytes({0, 1, 8, 0,    6,   4, 0, 1, 2, 0,
                                                            0, 0, 0, 0x99, 192, 0, 2, 9, 0, 0,
                                                            0, 0, 0, 0,    192, 0, 2, 1}));
    for (u8 type : {128, 131, 133, 134, 135, 136})
        all.push_back(Frame().ipv6({.next = 58}).bytes({type, 0, 0, 0, 0, 0, 0, 0}).padded());
    all.push_back(Frame().ipv6({.next = 0}).bytes({58, 0, 5, 2, 0, 0, 1, 0}).bytes({143, 0}));
    all.push_back(Frame().tag(10).tag(20).ipv4({}).padded());
    return all;
}

// A command as it stands behind the header of its message.
Bytes command(const nl_case &one) {
    nl_message message;
    nl_case_build(&message, &one, NL_COMPLETE, 0, 0x13, 1);
    return {message.u.bytes + NLMSG_HDRLEN, message.u.bytes + message.length};
}

Bytes address(const family_case &family, unsigned ifindex) {
    unsigned char bytes[CASE_VLAN];
    case_address(&family, ifindex, bytes);
    return {bytes, bytes + CASE_VLAN};
}

const std::vector<std::string> CHIP = {"trap filter on",
                                       "filter 800 806 86dd",
                                       "vlan 5001 2 tagged",
                                       "novlan 5001 2",
                                       "pvid 5002 2",
                                       "mac 02:00:00:00:00:02 2",
                                       "static 02:00:00:00:00:05 1 5001",
                                       "group 01:00:5e:01:02:03 1 5002",
                                       "fdb flush",
                                       "flood software",
                                       "age 1",
                                       "sflow 2",
                                       "show fdb",
                                       "learn 5001 off",
                                       "trusted 5001 on",
                                       "link 5001 down",
                                       "noport 5002",
                                       "port 5002 p2"};

void frame_seeds() {
    unsigned k = 0;
    for (const Bytes &frame : frames()) {
        k++;
        write("chain_fuzz", "frame", Bytes{1, 1, 0, 0, 0, 0, 64, 0} + frame);
        write("socket_fuzz", "frame", step(1, 1, frame));
        write("switch_fuzz", "frame", step(k % 2, k, frame) + step(2, k, frame));
        write("together_fuzz", "frame",
              step(4, 0x80 + k, {}) + step(0, 6, Bytes{0, 0, 0, 0} + frame) +
                  step(6, k, Bytes(100)));
    }
}

void netlink_seeds() {
    for (const nl_case &one : nl_cases) {
        Bytes payload = command(one);
        Bytes length{static_cast<u8>(payload.size() & 0xFF), static_cast<u8>(payload.size() >> 8)};
        write("netlink_fuzz", one.name, Bytes{1} + length + payload);
        write("together_fuzz", one.name, step(2, 0, payload));
    }
}

void socket_seeds() {
    unsigned which = 0;
    for (const family_case &family : family_cases) {
        for (unsigned ifindex : {CASE_PORT, CASE_VLAN_INTERFACE, 4501u}) {
            Bytes sent = address(family, ifindex) + Bytes(40, 0x88);
            write("socket_fuzz", family.name, step(0, which, sent));
            write("together_fuzz", family.name,
                  step(4, 0x80 + which, {}) + step(5, which, sent) +
                      step(7, which, {1, 8, 0, 1, 0, 0}) + step(6, which, Bytes(64)));
        }
        which++;
    }
}

// Which file has which number is the targets' to know: each text goes to all.
void proc_seeds() {
    for (const proc_case &one : proc_cases) {
        if (one.how != PROC_WRITE)
            continue;
        Bytes row;
        for (unsigned which = 0; which < 48; which++)
            row = row + step(4, which, text(one.text));
        write("proc_fuzz", "write", row + step(0, 1, {7}) + step(1, 2, {}));
        write("together_fuzz", "file", step(8, 1, text(one.text)) + step(8, 7, text(one.text)));
    }
}

void line_seeds() {
    Bytes row;
    for (const Case &one : cases()) {
        write("tarnctl_fuzz", "line", Bytes{0} + text(one.line) + Bytes{'\n'});
        row = row + step(9, 0, text(one.line));
        if (row.size() < 1000)
            continue;
        write("together_fuzz", "lines", row);
        row.clear();
    }
    for (const std::string &line : CHIP) {
        write("switch_fuzz", "words", step(3, 0, text(line)) + step(0, 0, frames()[0]));
        write("together_fuzz", "words", step(10, 0, text(line)) + step(10, 1, frames()[20]));
    }
}

// A client of each kind, what it says once and again without reading, and its end.
void server_seeds() {
    auto talk = [](unsigned kind, const Bytes &said, const Bytes &frame) {
        unsigned client = kind, come = kind * 8 + client, some = 3 * 8 + client;
        Bytes row = step(0, come, {}) + step(4, (kind == 0 ? 3 : 0) * 8 + client, {}) +
                    step(2, client, said) + step(8, 8, frame);
        write("servers_fuzz", "talk", row + step(5, some, {}) + step(7, client, {}));
        write("servers_fuzz", "silent", row + step(3, 31 * 8 + client, said) + step(6, some, {}));
        write("servers_fuzz", "raw", row + step(1, some, said) + step(1, client, said));
    };
    for (const nl_case &one : nl_cases)
        talk(0, command(one), {});
    for (unsigned char call = 0; call <= 5; call++)
        for (unsigned char a : {0, 1, 2, 46})
            talk(1, Bytes{call, 0, 0, 0, a} + Bytes(19, 0) + Bytes{64} + Bytes(20, 1), frames()[0]);
    for (const char *line :
         {"show counters\n", "trace count 1\n", "trace json seconds 1\n", "half"})
        talk(2, text(line), frames()[1]);
}

// A file of the older kind, with one frame; of the newer, an empty section.
void capture_seeds() {
    Bytes head{0xD4, 0xC3, 0xB2, 0xA1, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 1, 0, 0, 0};
    write("capture_fuzz", "pcap",
          head + Bytes{1, 0, 0, 0, 0, 0, 0, 0, 60, 0, 0, 0, 60, 0, 0, 0} + frames()[0]);
    write("capture_fuzz", "pcapng",
          {0x0A, 0x0D, 0x0D, 0x0A, 28,   0,    0,    0,    0x4D, 0x3C, 0x2B, 0x1A, 1, 0,
           0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 28,   0,    0, 0});
}

// Keys that rise, fall and jump, and one operation among the inserts.
void container_seeds() {
    for (unsigned operation = 1; operation < 8; operation++)
        for (unsigned stride : {1u, 63u, 27u}) {
            Bytes row{static_cast<u8>(stride)};
            for (unsigned i = 0; i < 40; i++)
                row = row + Bytes{static_cast<u8>(i % 4 == 3 ? operation : 0),
                                  static_cast<u8>(i * stride)};
            write("containers_fuzz", "keys", row);
        }
}

} // namespace

int main(int count, char **words) {
    if (count != 2) {
        std::fprintf(stderr, "make-seeds FOLDER\n");
        return 2;
    }
    folder = words[1];
    frame_seeds();
    netlink_seeds();
    socket_seeds();
    proc_seeds();
    line_seeds();
    server_seeds();
    capture_seeds();
    container_seeds();
    return 0;
}
