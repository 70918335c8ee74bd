#include "chip_rows.h"

namespace {

// Names of ports and devices may hold anything.
void _put_string(chip_text &text, const char *word) {
    text_put(text, "\"");
    for (; *word != '\0'; word++) {
        auto byte = static_cast<u8>(*word);
        if (byte < 0x20 || byte > 0x7E || byte == '"' || byte == '\\')
            text_put(text, "\\u%04x", byte);
        else
            text_put(text, "%c", byte);
    }
    text_put(text, "\"");
}

void _begin_item(chip_text &text, const char *name) {
    if (text.comma)
        text_put(text, ",");
    text.comma = true;
    if (name)
        text_put(text, "\"%s\":", name);
}

void _open(chip_text &text, const char *name, const char *bracket) {
    if (!text.json)
        return;
    _begin_item(text, name);
    text_put(text, "%s", bracket);
    text.comma = false;
}

void _close(chip_text &text, const char *bracket) {
    if (!text.json)
        return;
    text_put(text, "%s", bracket);
    text.comma = true;
}

void _begin_value(chip_text &text, const char *name, chip_naming naming) {
    if (text.json)
        return _begin_item(text, name);
    text_put(text, " ");
    if (naming == NAMED)
        text_put(text, "%s ", name);
}

} // namespace

void rows_begin(chip_text &text, const char *name) {
    _open(text, name, "[");
}

void rows_end(chip_text &text) {
    _close(text, "]");
}

void object_begin(chip_text &text, const char *name) {
    _open(text, name, "{");
}

void object_end(chip_text &text) {
    _close(text, "}");
}

void row_begin(chip_text &text, const char *kind) {
    if (!text.json)
        return text_put(text, "%s", kind);
    if (text.comma)
        text_put(text, ",");
    text.comma = false;
    text_put(text, "\n{");
}

void row_end(chip_text &text) {
    if (!text.json)
        return text_end_line(text);
    _close(text, "}");
}

void row_number(chip_text &text, const char *name, unsigned long number, chip_naming naming) {
    _begin_value(text, name, naming);
    text_put(text, "%lu", number);
}

void row_word(chip_text &text, const char *name, const char *word, chip_naming naming) {
    _begin_value(text, name, naming);
    if (text.json)
        return _put_string(text, word);
    text_put(text, "%s", word);
}

void row_hex(chip_text &text, const char *name, u32 number, chip_naming naming) {
    _begin_value(text, name, naming);
    if (text.json)
        return text_put(text, "\"%x\"", number);
    text_put(text, "%x", number);
}

void row_flag(chip_text &text, const char *name, bool on) {
    if (text.json) {
        _begin_item(text, name);
        text_put(text, "%s", on ? "true" : "false");
    } else if (on) {
        text_put(text, " %s", name);
    }
}
