// What the chip says of itself.
#pragma once

#include "chip_text.h"

void show_settings(chip_text &text);
void show_ports(chip_text &text);
void show_vlans(chip_text &text);
void show_addresses(chip_text &text);
void show_traps(chip_text &text);
