// The board's sleep and its wait for a descriptor, the same in every variant but for the time
// scale.
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>

#include "platform/board_time.h"

int (*board_sleep_hook)(BoardSleepEvent) = nullptr;

namespace {

int tell(BoardSleepEvent event) {
  return board_sleep_hook != nullptr ? board_sleep_hook(event) : -1;
}

int64_t host_ns() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// Waits until `fd` (-1: none) is readable or the host's monotonic clock reaches `end`; a signal,
// or the hook's descriptor becoming readable, interrupts the wait, which then goes on. 1 when
// `fd` became readable.
int wait_until(int fd, int64_t end) {
  int wake = tell(kSleepBegins);
  int result = 0;
  // Looked at once even when no time is left.
  for (;;) {
    int64_t left = std::max<int64_t>(end - host_ns(), 0);
    timespec timeout{static_cast<time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
    pollfd watch[] = {{fd, POLLIN, 0}, {wake, POLLIN, 0}};
    int ready = ppoll(watch, 2, &timeout, nullptr);
    if (ready > 0 && watch[0].revents != 0) {
      result = 1;
      break;
    }
    if (ready == 0 || (ready < 0 && errno != EINTR)) break;
    wake = tell(kSleepInterrupted);
  }
  tell(kSleepEnds);
  return result;
}

}  // namespace

void board_sleep(unsigned seconds) {
  wait_until(-1, host_ns() + static_cast<int64_t>(seconds) * 1000000000 / board_timescale());
}

int board_wait_readable(int fd, unsigned ms) {
  return wait_until(fd, host_ns() + static_cast<int64_t>(ms) * 1000000 / board_timescale());
}
