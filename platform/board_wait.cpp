#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>

#include "platform/board_time.h"

namespace {
void tell(BoardSleepEvent event) {
  if (board_sleep_hook != nullptr) board_sleep_hook(event);
}
}  // namespace

int board_wait_readable(int fd, unsigned ms) {
  int64_t end = board_monotonic_ms() + ms;
  pollfd wanted{fd, POLLIN, 0};
  int result = 0;
  tell(kSleepBegins);
  // Looked at once even when no time is left.
  for (;;) {
    int64_t left = std::max<int64_t>(end - board_monotonic_ms(), 0);
    int64_t ns = left * 1000000 / board_timescale();
    timespec timeout{static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    int ready = ppoll(&wanted, 1, &timeout, nullptr);
    if (ready > 0) {
      result = 1;
      break;
    }
    if ((ready == 0 && left == 0) || (ready < 0 && errno != EINTR)) break;
    if (ready < 0) tell(kSleepInterrupted);
  }
  tell(kSleepEnds);
  return result;
}
