// Rows of a reply: a line of words each, or, where JSON is asked for, an object each.
//
//   port 5001 veth1 link up pvid 10 core          {"port":5001,"device":"veth1","link":"up",...}
//
// A name that is not said in words is the one thing that JSON needs more.
#pragma once

#include "chip_text.h"

enum chip_naming { NAMED, BARE };

// A list of rows: of that name in the object around it, or null.
void rows_begin(chip_text &text, const char *name);
void rows_end(chip_text &text);
// The object around lists, and around what is said once.
void object_begin(chip_text &text, const char *name = nullptr);
void object_end(chip_text &text);

// `kind` starts the line, and is no part of the object.
void row_begin(chip_text &text, const char *kind);
void row_end(chip_text &text);

void row_number(chip_text &text, const char *name, unsigned long number,
                chip_naming naming = NAMED);
void row_word(chip_text &text, const char *name, const char *word, chip_naming naming = NAMED);
void row_hex(chip_text &text, const char *name, u32 number, chip_naming naming = NAMED);
// In words: there or not.
void row_flag(chip_text &text, const char *name, bool on);
