#pragma once

extern "C" {
extern volatile unsigned long jiffies;
}

inline unsigned long get_jiffies() {
    return jiffies;
}
