#include "control/proc_text.h"

#include "kernel/parse.h"
#include "kernel/proc.h"

namespace {

char *_comma(char *text) {
    while (*text && *text != ',')
        text++;
    return *text ? text : nullptr;
}

} // namespace

i32 tarn_atoi(const char *text) {
    return static_cast<i32>(simple_strtol(text, nullptr, 10));
}

bool proc_split(char *text, char **fields, u32 count) {
    fields[0] = text;
    for (u32 i = 1; i < count; i++) {
        char *comma = _comma(fields[i - 1]);
        if (!comma)
            return false;
        *comma = '\0';
        fields[i] = comma + 1;
    }
    return true;
}

char *proc_line(const proc_text &written) {
    if (written.length > 0)
        written.text[written.length - 1] = '\0';
    return written.text;
}
