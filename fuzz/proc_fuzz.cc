// Every file of /proc/tarn, written and read as anybody may: any bytes, any number of them, reads
// that begin and end anywhere, files held open while what they are of goes.
#include "control.h"
#include "fuzzed_switch.h"
#include "kernel/errno.h"
#include "proc.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

std::vector<std::string> files;
std::unique_ptr<userlevel::proc_open_file> held;

void start() {
    fuzzed::load();
    files = fuzzed::files();
}

// A result is a number of bytes that were there, or an error: a store that takes more than it was
// given makes a shell write what it never said.
void write(const std::string &file, std::span<const u8> bytes) {
    long result = userlevel::proc_write(file, bytes.data(), bytes.size());
    if (result < -4095 || result > static_cast<long>(bytes.size()))
        std::abort();
}

void read(u32 which, std::span<const u8> bytes) {
    if (!held || which & 1)
        held = userlevel::proc_open_file::open(files[which % files.size()]);
    if (!held)
        return;
    std::vector<char> room(bytes.empty() ? 1 : bytes[0] + 1);
    std::size_t offset = bytes.size() < 2 ? 0 : bytes[1];
    for (int again = 0; again < 3; again++) {
        long got = held->read(room.data(), room.size(), offset);
        if (got < -4095 || got > static_cast<long>(room.size()))
            std::abort();
        offset += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
}

void step(u32 what, u32 which, std::span<const u8> bytes) {
    switch (what % 8) {
    case 0:
        return read(which, bytes);
    case 1:
        userlevel::proc_read(files[which % files.size()]);
        return;
    case 2:
        userlevel::proc_write(files[which % files.size()], nullptr, what); // from nowhere
        return;
    case 3:
        return fuzzed::reset(); // while a file is open
    default:
        return write(files[which % files.size()], bytes);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    static const bool started = (start(), true);
    (void)started;
    fuzzed::run_steps({data, size}, step);
    held.reset();
    fuzzed::reset();
    fuzzed::must_have_lost_nothing();
    return 0;
}
