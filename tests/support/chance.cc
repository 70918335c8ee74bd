#include "support/chance.h"

#include "memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <unistd.h>

namespace {

long resident_kb() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

} // namespace

u64 from_environment(const char *name, u64 otherwise) {
    const char *text = std::getenv(name);
    return text ? std::strtoull(text, nullptr, 0) : otherwise;
}

Bytes Chance::noise(std::size_t length) {
    Bytes bytes((length + 7) / 8 * 8);
    for (std::size_t at = 0; at < length; at += 8) {
        u64 eight = draw();
        std::memcpy(&bytes[at], &eight, sizeof(eight));
    }
    bytes.resize(length);
    return bytes;
}

Counted::Counted(const char *of_what, const char *variable, u64 otherwise)
    : of_what_(of_what), wanted_(from_environment(variable, otherwise)) {}

Counted::~Counted() {
    std::printf("%llu %s, seed %llu, grown by %ld kB\n", static_cast<unsigned long long>(wanted_),
                of_what_, static_cast<unsigned long long>(from_environment("TARN_RANDOM_SEED", 1)),
                grown_kb());
}

long Counted::grown_kb() const {
    return resident_kb_ == 0 ? 0 : resident_kb() - resident_kb_;
}

void Counted::look() {
    if (resident_kb_ == 0 && done_ >= wanted_ / 10 && !userlevel::UNDER_ASAN)
        resident_kb_ = resident_kb();
    const double seconds = std::chrono::duration<double>(clock::now() - told_).count();
    if (seconds < 10)
        return;
    std::fprintf(stderr, "  %llu of %llu %s, %.0f a second, %ld kB resident\n",
                 static_cast<unsigned long long>(done_), static_cast<unsigned long long>(wanted_),
                 of_what_, static_cast<double>(done_ - told_done_) / seconds, resident_kb());
    told_ = clock::now();
    told_done_ = done_;
}
