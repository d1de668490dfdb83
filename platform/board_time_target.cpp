#include <cerrno>
#include <ctime>

#include "platform/board_time.h"

void (*board_sleep_interrupted)() = nullptr;

void board_sleep(unsigned seconds) {
  timespec left{static_cast<time_t>(seconds), 0};
  do {
    if (board_sleep_interrupted != nullptr) board_sleep_interrupted();
  } while (nanosleep(&left, &left) != 0 && errno == EINTR);
}

int board_interval_timer(unsigned seconds) {
  itimerval tv{};
  tv.it_value.tv_sec = seconds;
  tv.it_interval.tv_sec = seconds;
  return setitimer(ITIMER_REAL, &tv, nullptr);
}

int board_gettimeofday(struct timeval* tv, struct timezone* tz) { return gettimeofday(tv, tz); }

int board_settimeofday(const struct timeval* tv, const struct timezone* tz) {
  return settimeofday(tv, tz);
}
