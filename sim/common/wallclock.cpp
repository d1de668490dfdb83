#include "sim/common/wallclock.h"

#include <cstdio>
#include <ctime>
#include <string>

#include "platform/state_file.h"
#include "sim/common/sim_files.h"

namespace sim {

WallClock load_wallclock() {
  WallClock clock;
  FILE* in = std::fopen(file(kWallClock).c_str(), "re");
  long long wall = 0;
  long long mono = 0;
  bool read = in != nullptr &&
              std::fscanf(in, "%lld %lld %d", &wall, &mono, &clock.minuteswest) == 3;
  if (in != nullptr) std::fclose(in);
  clock.anchor_wall_us = wall;
  clock.anchor_mono_us = mono;
  if (!read) {
    clock = WallClock{};
    clock.anchor_wall_us = host_realtime_us();
    clock.anchor_mono_us = host_monotonic_us();
  }
  return clock;
}

void save_wallclock(const WallClock& clock) {
  char text[80];
  int length = std::snprintf(text, sizeof text, "%lld %lld %d\n",
                             static_cast<long long>(clock.anchor_wall_us),
                             static_cast<long long>(clock.anchor_mono_us), clock.minuteswest);
  write_state_file(file(kWallClock).c_str(), text, static_cast<size_t>(length));
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
