#include "core/stop.h"

#include <csignal>

#include "core/log_line.h"
#include "core/process_end.h"
#include "core/signals.h"
#include "crash/boot_reason.h"
#include "crash/crash_counter.h"
#include "platform/mculink.h"
#include "process/process_management.h"
#include "status/snapshot.h"
#include "update/boot_flags.h"
#include "watchdog/hw_watchdog.h"

namespace {

// Tells the MCU to stop expecting the board's heartbeat, and logs how that went.
void stop_mcu_heartbeat() {
  int result = disable_mcu_heartbeat();
  if (result < 0)
    log_line("disable_mcu_heartbeat() failed err = ", result);
  else
    log_line("disable_mcu_heartbeat done...");
}

}  // namespace

int fl_signalinit() { return install_stop_signals(fl_onsignal); }

void fl_onsignal(int signal) {
  log_line("catch signal:", signal);
  status_phase("stopping");
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
    end_process(0);
  }
  log_line("stop tqcustodo, killall process then exit");
  ProcessManagement.KillAllProcess(KILL_WAIT);
  set_crash_flag(0);
  if (signal == SIGTERM) stop_mcu_heartbeat();
  end_process(2);
}
