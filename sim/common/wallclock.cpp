#include "sim/common/wallclock.h"

#include <cstdio>
#include <ctime>
#include <sstream>
#include <string>

#include "core/state_file.h"
#include "sim/common/sim_files.h"

namespace sim {

namespace {
int64_t clock_us(clockid_t id) {
  timespec ts{};
  clock_gettime(id, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}
}  // namespace

int64_t host_monotonic_us() { return clock_us(CLOCK_MONOTONIC); }
int64_t host_realtime_us() { return clock_us(CLOCK_REALTIME); }

WallClock load_wallclock() {
  WallClock clock;
  std::istringstream in(read_file(file(kWallClock)));
  if (!(in >> clock.anchor_wall_us >> clock.anchor_mono_us >> clock.minuteswest)) {
    clock = WallClock{};
    clock.anchor_wall_us = host_realtime_us();
    clock.anchor_mono_us = host_monotonic_us();
  }
  return clock;
}

void save_wallclock(const WallClock& clock) {
  std::ostringstream text;
  text << clock.anchor_wall_us << ' ' << clock.anchor_mono_us << ' ' << clock.minuteswest << '\n';
  write_state_file(file(kWallClock).c_str(), text.str().data(), text.str().size());
}

int64_t wallclock_now_us(const WallClock& clock) {
  return clock.anchor_wall_us + (host_monotonic_us() - clock.anchor_mono_us) * timescale();
}

void set_wallclock(int64_t wall_us, int minuteswest, const char* who) {
  WallClock clock;
  clock.anchor_wall_us = wall_us;
  clock.anchor_mono_us = host_monotonic_us();
  clock.minuteswest = minuteswest;
  save_wallclock(clock);
  char line[128];
  std::snprintf(line, sizeof line, "%s %lld.%06lld minuteswest %d", who,
                static_cast<long long>(wall_us / 1000000), static_cast<long long>(wall_us % 1000000),
                minuteswest);
  record(kClockLog, line);
}

}  // namespace sim
