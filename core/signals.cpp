#include "core/signals.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "core/log_line.h"
#include "crash/boot_reason.h"
#include "crash/crash_counter.h"
#include "platform/mculink.h"
#include "process/process_management.h"
#include "update/boot_flags.h"
#include "watchdog/hw_watchdog.h"

namespace {
constexpr int kHandledSignals[] = {SIGTERM, SIGINT,  SIGQUIT, SIGSEGV, SIGBUS,  SIGUSR1,
                                   SIGUSR2, SIGILL,  SIGTRAP, SIGABRT, SIGFPE,  SIGHUP};
pthread_t main_thread;
}  // namespace

int fl_signalinit() {
  main_thread = pthread_self();
  for (int signal : kHandledSignals)
    if (std::signal(signal, fl_onsignal) == SIG_ERR) return -1;
  return 0;
}

void stop_mcu_heartbeat() {
  int result = disable_mcu_heartbeat();
  if (result < 0)
    log_line("disable_mcu_heartbeat() failed err = ", result);
  else
    log_line("disable_mcu_heartbeat done...");
}

// Never returns: whatever the main thread was doing is abandoned with the process. Another
// thread that takes the signal (the receive thread aborting on a bad message, say) hands it to
// the main thread and waits: run there, the stop path cannot race the main loop, which would
// otherwise go on restarting the daemons being stopped.
void fl_onsignal(int signal) {
  if (!pthread_equal(pthread_self(), main_thread)) {
    pthread_kill(main_thread, signal);
    for (;;) pause();
  }
  log_line("catch signal:", signal);
  ProcessManagement.InitialMonitor();
  deactive_wdog();
  clear_crash_time();
  if (signal == SIGUSR1) {
    log_line("catch sigusr1 exit immediately");
    set_crash_flag(0);
    log_line("set_crash_flag(0)");
    restore_partition_flag();
    log_line("restore_partition_flag");
    ProcessManagement.KillAllProcess(KILL_NOW);
    stop_mcu_heartbeat();
    std::exit(0);
  }
  log_line("stop tqcustodo, killall process then exit");
  ProcessManagement.KillAllProcess(KILL_WAIT);
  set_crash_flag(0);
  if (signal == SIGTERM) stop_mcu_heartbeat();
  std::exit(2);
}
