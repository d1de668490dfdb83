#include "core/timer.h"

#include <cerrno>
#include <csignal>

#include "core/event_queue.h"
#include "platform/board_time.h"

void OS_TimerRoutine(int) {
  int saved = errno;
  OS_SendQueue(CHECK_PROCESS);
  errno = saved;
}

int OS_InitTimer() {
  if (board_interval_timer(1) != 0) return 0;
  // Installed after arming: the first expiry is a second away.
  std::signal(SIGALRM, OS_TimerRoutine);
  return 1;
}
