// The board-time seam on the simulated board.
#include <cstdint>
#include <ctime>

#include "platform/board_time.h"
#include "sim/common/sim_files.h"
#include "sim/common/wallclock.h"

int board_interval_timer(unsigned seconds) {
  uint64_t us = static_cast<uint64_t>(seconds) * 1000000ull / sim::timescale();
  itimerval tv{};
  tv.it_value.tv_sec = static_cast<time_t>(us / 1000000);
  tv.it_value.tv_usec = static_cast<suseconds_t>(us % 1000000);
  tv.it_interval = tv.it_value;
  return setitimer(ITIMER_REAL, &tv, nullptr);
}

uint64_t board_counter_ms(uint64_t word) { return sim::counter_from_word(word); }

unsigned board_timescale() { return sim::timescale(); }

int64_t board_monotonic_ms() { return sim::host_monotonic_us() / 1000 * sim::timescale(); }

int board_gettimeofday(struct timeval* tv, struct timezone* tz) {
  sim::WallClock clock = sim::load_wallclock();
  if (tv != nullptr) {
    int64_t now = sim::wallclock_now_us(clock);
    tv->tv_sec = static_cast<time_t>(now / 1000000);
    tv->tv_usec = static_cast<suseconds_t>(now % 1000000);
  }
  if (tz != nullptr) {
    tz->tz_minuteswest = clock.minuteswest;
    tz->tz_dsttime = 0;
  }
  return 0;
}

int board_settimeofday(const struct timeval* tv, const struct timezone* tz) {
  sim::WallClock clock = sim::load_wallclock();
  int64_t wall = tv ? static_cast<int64_t>(tv->tv_sec) * 1000000 + tv->tv_usec
                    : sim::wallclock_now_us(clock);
  sim::set_wallclock(wall, tz ? tz->tz_minuteswest : clock.minuteswest, "settimeofday");
  return 0;
}
