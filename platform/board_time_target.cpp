#include <ctime>

#include "platform/board_time.h"

int board_interval_timer(unsigned seconds) {
  itimerval tv{};
  tv.it_value.tv_sec = seconds;
  tv.it_interval.tv_sec = seconds;
  return setitimer(ITIMER_REAL, &tv, nullptr);
}

uint64_t board_counter_ms(uint64_t word) { return word; }

unsigned board_timescale() { return 1; }

int64_t board_monotonic_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int board_gettimeofday(struct timeval* tv, struct timezone* tz) { return gettimeofday(tv, tz); }

int board_settimeofday(const struct timeval* tv, const struct timezone* tz) {
  return settimeofday(tv, tz);
}
