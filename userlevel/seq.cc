#include "kernel/seq.h"

#include "control.h"

#include <cstdarg>
#include <cstdio>

struct seq_file {
    std::string text;
};

void seq_printf(seq_file *view, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *text = nullptr;
    if (vasprintf(&text, format, arguments) >= 0) {
        view->text += text;
        std::free(text);
    }
    va_end(arguments);
}

userlevel::view::view() : file_(new seq_file) {}
userlevel::view::~view() {
    delete file_;
}
std::string userlevel::view::text() const {
    return file_->text;
}
