// The simulated board's wall clock: host time never moves. The clock is anchored at a wall
// time and a host monotonic instant, and runs CUSTODO_SIM_TIMESCALE times faster than the host.
#pragma once
#include <cstdint>

#include "sim/common/sim_files.h"

namespace sim {

struct WallClock {
  int64_t anchor_wall_us = 0;
  int64_t anchor_mono_us = 0;
  int minuteswest = 0;
};

// The board's clock; the host's clock when the board has none yet.
WallClock load_wallclock();
void save_wallclock(const WallClock& clock);
int64_t wallclock_now_us(const WallClock& clock);

// Sets the board's wall clock (and time zone) and records it.
void set_wallclock(int64_t wall_us, int minuteswest, const char* who);

}  // namespace sim
