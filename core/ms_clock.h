// The board's millisecond counter: 8 bytes kept up to date by a kernel driver and mapped
// read-only. 0 when no counter device can be mapped.
#pragma once
#include <cstdint>

int init_jiffies_mmap();
uint64_t get_cur_time_ms();
