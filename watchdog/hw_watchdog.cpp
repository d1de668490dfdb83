#include "watchdog/hw_watchdog.h"

#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "core/env_number.h"
#include "core/liveness.h"
#include "core/log_line.h"
#include "core/process_end.h"
#include "core/threads.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"

std::atomic<int> wdogfd{0};
std::atomic<int> wdogcnt{0};
std::atomic<int> wdog_enable{1};

namespace {

pthread_t wdog_thread;

constexpr int kTimeoutSeconds = 16;
constexpr unsigned kFeedPeriodSeconds = kTimeoutSeconds / 2;
// The board's driver extension: read/write, type 'W', number 11, int-sized.
constexpr unsigned long WDIOC_SETFUNCCONFIG = _IOWR('W', 11, int);
constexpr int kDefaultFuncConfig = 1;

static_assert(WDIOC_SETTIMEOUT == 0xC0045706 && WDIOC_SETOPTIONS == 0x80045704 &&
                  WDIOC_KEEPALIVE == 0x80045705 && WDIOC_SETFUNCCONFIG == 0xC004570B,
              "the board's driver expects these request numbers");

}  // namespace

int active_wdog() {
  int config = env_decimal("HWDOG_OPTION", kDefaultFuncConfig);
  // The daemons started through the shell must not inherit the device and keep it open.
  int fd = open(board_path(BoardPath::Watchdog), O_WRONLY | O_CLOEXEC);
  wdogfd = fd;
  if (fd < 0) {
    log_line("open wdog Error: ", std::strerror(errno));
    end_process(-1);
  }
  log_line("Set Feed HW Watchdog interval to ", kTimeoutSeconds);
  int timeout = kTimeoutSeconds;
  if (ioctl(fd, WDIOC_SETTIMEOUT, &timeout) != 0) {
    log_line("Error: Set watchdog interval failed");
    end_process(-1);
  }
  log_line("WDIOC_SETFUNCCONFIG: ", config);
  ioctl(fd, WDIOC_SETFUNCCONFIG, &config);
  int options = WDIOS_ENABLECARD;
  return ioctl(fd, WDIOC_SETOPTIONS, &options);
}

void feed_wdog() {
  int fd = wdogfd;
  if (fd == -1) {
    log_line("WDOG not initialized");
    return;
  }
  ioctl(fd, WDIOC_KEEPALIVE, 1);
  wdogcnt.fetch_add(1, std::memory_order_relaxed);
}

void deactive_wdog() {
  int fd = wdogfd;
  if (fd == -1) return;
  ssize_t written = write(fd, "V", 1);
  if (written == -1)
    log_line("HW WDOG shutdown failed ", written);
  else
    log_line("HW WDOG shutdown ", fd, " ", written);
  int closed = close(fd);
  log_line("HW WDOG shutdown close fd ", fd, " ", closed);
  wdogfd = -1;
}

namespace {

int hw_ign_sig() {
  sigset_t all;
  sigfillset(&all);
  return pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

void* hw_wdog_thread(void*) {
  log_line("watchdog hw_wdog_thread started!\n");
  // Every signal goes to another thread, where the stop path runs.
  hw_ign_sig();
  active_wdog();
  bool told = false;
  while (wdog_enable) {
    if (!main_thread_stalled()) {
      feed_wdog();
      told = false;
    } else if (!told) {
      log_line("main thread stalled: hardware watchdog no longer fed");
      told = true;
    }
    board_sleep(kFeedPeriodSeconds);
  }
  deactive_wdog();
  return nullptr;
}

}  // namespace

int create_hw_wdog_thread() { return start_thread(&wdog_thread, hw_wdog_thread); }

void destroy_hw_wdog_thread() {
  wdog_enable = 0;
  // The thread is normally in its sleep, a cancellation point: it ends without closing.
  pthread_cancel(wdog_thread);
  log_line("cancel hw_wdog_thread ");
  int result = pthread_join(wdog_thread, nullptr);
  if (result != 0) log_line("destroy_hw_wdog_thread failed = ", result);
  deactive_wdog();
  log_line("destroy_hw_wdog_thread succ = ", result);
}
