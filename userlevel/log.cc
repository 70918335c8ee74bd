#include "kernel/log.h"

#include "control.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace userlevel {

namespace {

constexpr int DEFAULT_LEVEL = 4;

std::mutex log_mutex;
std::vector<log_line> lines;
u64 lines_made = 0;
bool echo = false;

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

} // namespace

std::vector<log_line> log_take() {
    std::lock_guard guard(log_mutex);
    return std::exchange(lines, {});
}

u64 log_count() {
    std::lock_guard guard(log_mutex);
    return lines_made;
}

void log_echo(bool on) {
    std::lock_guard guard(log_mutex);
    echo = on;
}

} // namespace userlevel

int _printk(const char *format, ...) {
    using namespace userlevel;

    char level = '0' + DEFAULT_LEVEL;
    if (format[0] == '\001' && format[1] != '\0') {
        level = format[1];
        format += 2;
    }
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatted(format, arguments);
    va_end(arguments);

    std::lock_guard guard(log_mutex);
    if (echo)
        std::fprintf(stderr, "<%c> %s", level, text.c_str());
    int length = static_cast<int>(text.size());
    if (level == 'c' && !lines.empty()) {
        lines.back().text += text;
        return length;
    }
    lines_made++;
    if (lines.size() < LOG_LINES)
        lines.push_back({level == 'c' ? DEFAULT_LEVEL : level - '0', std::move(text)});
    return length;
}
