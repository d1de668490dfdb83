// Board time as the simulator's own timers see it: the host's monotonic clock, running
// CUSTODO_SIM_TIMESCALE times faster. Unlike the counter device it cannot be frozen.
#pragma once
#include <cstdint>

#include "sim/common/sim_files.h"
#include "sim/common/wallclock.h"

inline uint64_t board_clock_ms() {
  return static_cast<uint64_t>(sim::host_monotonic_us()) * sim::timescale() / 1000;
}
