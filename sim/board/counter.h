// dev/jiffies: the board's millisecond counter (board time since boot), frozen or set on
// request. Its 8 bytes are stored only then: every reader computes the running count from
// them (sim/common/sim_files.h), so no thread has to store it every millisecond.
#pragma once
#include <cstdint>
#include <string>

// Maps the counter file and starts the count; without a device the counter is only kept for
// the status and the records stay at 0.
bool counter_start(const std::string& path, bool device, std::string* error);
void counter_stop();

// A boot starts the counter again from 0.
void counter_boot();
void counter_freeze();
void counter_freeze_at(uint64_t ms);
// Sets the value and lets it run on from there.
void counter_set(uint64_t ms);
void counter_run();

uint64_t counter_value();
bool counter_frozen();
