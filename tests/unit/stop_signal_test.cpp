#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <csignal>

#include "core/signals.h"
#include "platform/board_time.h"

namespace {

int (*looked)(BoardSleepEvent) = nullptr;

// The stop signal lands after the sleep looked for a request and before it blocks.
int signal_after_looking(BoardSleepEvent event) {
  int wake = looked(event);
  if (event == kSleepBegins) raise(SIGTERM);
  return wake;
}

TEST(StopSignal, OneJustBeforeASleepEndsItAtOnce) {
  EXPECT_EXIT(
      {
        // The event queue, woken too, is the test's own.
        if (unshare(CLONE_NEWIPC) != 0) _exit(1);
        install_stop_signals([](int signal) { _exit(signal); });
        looked = board_sleep_hook;
        board_sleep_hook = signal_after_looking;
        board_sleep(3600);  // an hour of board time, seconds on the host
        _exit(0);
      },
      testing::ExitedWithCode(SIGTERM), "");
}

}  // namespace
