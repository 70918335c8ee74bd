// The trap table: which frames go to the CPU, and what the CPU is told of each.
#pragma once

#include "chip_frame.h"
#include "chip_state.h"

struct chip_trap {
    const char *name;
    u32 cpu_code; // a number of its own
    u32 code;     // class, flags and queue as tarn_rx_meta has them
    u32 flags;
    u32 queue;
    chip_trap_mode mode;
    bool starts_on;
    // Taken whether or not the port is a member of the VLAN, and its source is not learned: the
    // protocol is about the link and not about a VLAN.
    bool of_the_link;
    bool (*match)(const chip_frame &frame); // null: the chip applies the row where it belongs
};

// Rows that the chip applies by themselves, beside the one that matched.
enum chip_report : u32 { CHIP_SAMPLE, CHIP_NEW_ADDRESS, CHIP_MOVED_ADDRESS };

u32 trap_count();
const chip_trap &trap_row(u32 index);
u32 trap_of_report(chip_report report);

// All rows as the table has them, counters 0.
void trap_reset();

// The first row that is on and matches; trap_count() for none. Under the chip's lock.
u32 trap_find(const chip_frame &frame);
