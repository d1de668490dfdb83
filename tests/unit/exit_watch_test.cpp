#include <gtest/gtest.h>
#include <linux/sched.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <deque>

#include "core/event_queue.h"
#include "platform/board_time.h"
#include "process/exit_watch.h"

namespace {

// A child that waits to be killed, with the given id (0: any); root may pick a free one. Ends
// the test's process when there is none: a kill of -1 would reach every process.
pid_t child(pid_t id) {
  clone_args args{};
  args.exit_signal = SIGCHLD;
  if (id != 0) {
    args.set_tid = reinterpret_cast<uintptr_t>(&id);
    args.set_tid_size = 1;
  }
  long pid = syscall(SYS_clone3, &args, sizeof args);
  if (pid == 0) {
    for (;;) pause();
  }
  if (pid < 1 || (id != 0 && pid != id)) _exit(3);
  return static_cast<pid_t>(pid);
}

// The daemon, watched for a second of board time, ends; the check must come (or SIGALRM ends
// the process).
void ends_and_is_checked(pid_t pid) {
  for (int64_t begin = board_monotonic_ms(); board_monotonic_ms() - begin < 1000;) board_sleep(1);
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  int event = 0;
  alarm(10);
  OS_RecvQueue(&event, 0);
  if (event != CHECK_PROCESS) _exit(1);
}

TEST(ExitWatch, FollowsADaemonThatGetsItsOldIdBack) {
  // qemu's user mode, which runs the cross builds' tests, has no clone3.
  if (syscall(SYS_clone3, nullptr, 0) == -1 && errno == ENOSYS) GTEST_SKIP() << "no clone3";
  EXPECT_EXIT(
      {
        if (unshare(CLONE_NEWIPC) != 0) _exit(2);  // the event queue is the test's own
        setenv("CUSTODO_FAST_RESTART", "1", 1);
        std::deque<ProcessInfo> list(1);
        list[0].pid = child(0);
        exit_watch_start(list);
        ends_and_is_checked(list[0].pid);
        child(list[0].pid);
        exit_watch_follow(list);
        ends_and_is_checked(list[0].pid);
        _exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
