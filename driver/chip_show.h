// What the chip shows of itself. As JSON each view is one value, called `name` in the object around
// it, if there is one.
#pragma once

#include "chip_text.h"

void show_settings(chip_text &text, const char *name);
void show_ports(chip_text &text, const char *name);
void show_vlans(chip_text &text, const char *name);
void show_traps(chip_text &text, const char *name);
void show_addresses(chip_text &text, const char *name);
