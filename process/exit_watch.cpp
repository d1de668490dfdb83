#include "process/exit_watch.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <vector>

#include "core/event_queue.h"
#include "core/log_line.h"
#include "core/threads.h"
#include "platform/board_time.h"

namespace {

struct Watched {
  int pid;
  int fd;
  int64_t since_ms;  // board time at which the watch of this process began
};

// A daemon that ended stays a zombie until its parent reaps it, and a zombie still takes
// signal 0: the check would find it alive. The init reaps daemons started in the background
// at once; a parent that never reaps leaves the zombie to the check as it stands.
constexpr int kReapWaitMs = 50;
// A daemon that ends sooner after its watch began is left to the next tick: one that dies at
// once is then restarted no more often than the one-second check would.
constexpr int64_t kLeastRunMs = 1000;

int epoll_fd = -1;
std::mutex watched_lock;  // the main thread changes the set, the watcher reads its times
std::vector<Watched> watched;
std::atomic<bool> posting{true};
pthread_t watcher;

template <typename List>
bool holds(const List& list, int pid) {
  return std::any_of(list.begin(), list.end(), [pid](const auto& item) { return item.pid == pid; });
}

void wait_reaped(int pid) {
  timespec millisecond{0, 1000000};
  for (int waited = 0; waited < kReapWaitMs && kill(pid, 0) == 0; ++waited)
    nanosleep(&millisecond, nullptr);
}

bool ran_long_enough(int pid) {
  std::lock_guard<std::mutex> hold(watched_lock);
  auto item = std::find_if(watched.begin(), watched.end(), [pid](const Watched& w) { return w.pid == pid; });
  return item != watched.end() && board_monotonic_ms() - item->since_ms >= kLeastRunMs;
}

// A pidfd is readable once its process has ended, and stays so.
bool fired(int fd) {
  pollfd ended{fd, POLLIN, 0};
  return poll(&ended, 1, 0) > 0;
}

void* watch(void*) {
  for (;;) {
    epoll_event ended[16];
    int count = epoll_wait(epoll_fd, ended, 16, -1);
    bool check = false;
    // Each pidfd is one-shot: the list's next ids get new ones.
    for (int i = 0; i < count; ++i) {
      int pid = static_cast<int>(ended[i].data.u64);
      if (!ran_long_enough(pid)) continue;
      wait_reaped(pid);
      check = true;
    }
    if (check && posting.load(std::memory_order_relaxed)) OS_SendQueue(CHECK_PROCESS);
  }
  return nullptr;
}

}  // namespace

void exit_watch_start(const std::deque<ProcessInfo>& processes) {
  const char* setting = std::getenv("CUSTODO_FAST_RESTART");
  if (setting == nullptr || std::strcmp(setting, "1") != 0) return;
  epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  if (epoll_fd < 0 || start_thread(&watcher, watch) != 0) {
    log_line("fast restart: cannot watch the daemons, checks on the timer alone");
    return;
  }
  log_line("fast restart: a daemon that ends is checked at once");
  exit_watch_follow(processes);
}

void exit_watch_follow(const std::deque<ProcessInfo>& processes) {
  if (epoll_fd < 0) return;
  std::lock_guard<std::mutex> hold(watched_lock);
  std::vector<Watched> kept;
  for (const Watched& item : watched) {
    // A daemon that got its old id back is a new process: the fired pidfd is not its.
    if (holds(processes, item.pid) && !fired(item.fd)) {
      kept.push_back(item);
    } else {
      epoll_ctl(epoll_fd, EPOLL_CTL_DEL, item.fd, nullptr);
      close(item.fd);
    }
  }
  for (const ProcessInfo& rec : processes) {
    int pid = rec.pid;
    if (pid < 1 || holds(kept, pid)) continue;
    // Gone already: the next tick's check finds it.
    int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (fd < 0) continue;
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.u64 = static_cast<uint64_t>(pid);
    epoll_ctl(epoll_fd, EPOLL_CTL_ADD, fd, &event);
    kept.push_back({pid, fd, board_monotonic_ms()});
  }
  watched.swap(kept);
}

void exit_watch_end() {
  if (epoll_fd >= 0) posting.store(false, std::memory_order_relaxed);
}
