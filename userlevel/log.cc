#include "kernel/log.h"

#include "control.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace userlevel {

namespace {

constexpr char DEFAULT_LEVEL = '4';
constexpr char CONTINUATION = 'c';

std::mutex log_mutex;
std::vector<log_line> lines;
u64 lines_made = 0;
bool echo = false;
bool keep = true;
bool last_was_kept = false; // a continuation goes where its line went
bool last_was_taken = false;

std::string formatted(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return "(a log line whose format is broken)\n";
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// What the prefix tells, which is then skipped. Anything else in front is text, as in a kernel.
char level_of(const char *&format) {
    if (format[0] != '\001' ||
        !((format[1] >= '0' && format[1] <= '7') || format[1] == CONTINUATION))
        return DEFAULT_LEVEL;
    char level = format[1];
    format += 2;
    return level;
}

void add_line(char level, std::string &&text) {
    lines_made++;
    last_was_taken = false;
    last_was_kept = keep && lines.size() < LOG_LINES;
    if (last_was_kept)
        lines.push_back({level - '0', std::move(text)});
}

void continue_line(std::string &&text) {
    if (lines_made == 0 || last_was_taken)
        add_line(DEFAULT_LEVEL, std::move(text)); // there is none to join
    else if (last_was_kept && lines.back().text.size() < LOG_LINE_BYTES)
        lines.back().text += text;
}

} // namespace

std::vector<log_line> log_take() {
    std::lock_guard guard(log_mutex);
    last_was_taken = true;
    return std::exchange(lines, {});
}

u64 log_count() {
    std::lock_guard guard(log_mutex);
    return lines_made;
}

void log_keep(bool on) {
    std::lock_guard guard(log_mutex);
    keep = on;
}

void log_echo(bool on) {
    std::lock_guard guard(log_mutex);
    echo = on;
}

} // namespace userlevel

int _printk(const char *format, ...) {
    using namespace userlevel;

    char level = level_of(format);
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatted(format, arguments);
    va_end(arguments);

    std::lock_guard guard(log_mutex);
    if (echo)
        std::fprintf(stderr, "<%c> %s", level, text.c_str());
    int length = static_cast<int>(text.size());
    if (level == CONTINUATION)
        continue_line(std::move(text));
    else
        add_line(level, std::move(text));
    return length;
}
