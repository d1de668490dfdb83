#include "core/main_loop.h"

#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/event_queue.h"
#include "core/liveness.h"
#include "core/log_line.h"
#include "core/process_end.h"
#include "core/shell.h"
#include "crash/boot_reason.h"
#include "crash/crash_counter.h"
#include "crash/crash_stat.h"
#include "ipc/messages.h"
#include "ipc/receive_thread.h"
#include "ipc/send.h"
#include "platform/board_paths.h"
#include "platform/tqlog.h"
#include "process/process_management.h"
#include "sound/speaker.h"
#include "status/snapshot.h"
#include "update/boot_flags.h"
#include "watchdog/hw_watchdog.h"

namespace {

enum Decision {
  STAY = 0,
  RESTART_ALL = 2,  // a key process was lost
  POWER_OFF = 4,
  REBOOT = 5,
  CRASH_REBOOT = 6,  // the fifth key-process crash of a group
};

constexpr int kCrashesPerGroup = 5;

// Cleared once, on the one check at which the feed count reaches the quiet period, and never
// again in this process: an equality on purpose.
void clear_crash_time_if_quiet() {
  int64_t quiet = static_cast<int64_t>(get_crash_ignore_time()) * 60 / 8;
  if (wdogcnt.load(std::memory_order_relaxed) == quiet) {
    log_line("CHECK_PROCESS found process seems fine, clear crash time...");
    clear_crash_time();
  }
}

Decision check_processes() {
  log_line("CHECK_PROCESS", " WDOG ", wdogcnt.load(std::memory_order_relaxed));
  MonitorResult result = ProcessManagement.Monitor();
  if (result == MONITOR_KEY_PROCESS_LOST) {
    Decision decision = RESTART_ALL;
    if (get_current_crash() == kCrashesPerGroup - 1) {
      log_line("CHECK_PROCESS found process crash too many times, reboot...");
      decision = CRASH_REBOOT;
    }
    add_crash_time();
    clear_crash_time_if_quiet();
    return decision;
  }
  if (result == MONITOR_RESTARTED) ProcessManagement.InitialMonitor();
  clear_crash_time_if_quiet();
  return STAY;
}

void reset_cloud_client() {
  log_line("RESET_QUOM");
  tq_system("pkill -f quom");
  appbridge_alive = 1;
  send_ipc_msg(MSG_QUOM_RESET_ACK, nullptr, 0);
}

void cpu_performance() {
  std::string cmdline = std::string(board_path(BoardPath::CpuScript)) + " performance";
  tq_system(cmdline.c_str());
}

[[noreturn]] void shut_down(const char* command) {
  log_line("call ", command);
  tq_system(command);
  end_process(0);
}

[[noreturn]] void leave(Decision decision) {
  status_phase("stopping");
  // The clock sync and IPC threads go on running until the process ends.
  log_line("destroy_ntp_thread...");
  log_line("destroy_hw_wdog_thread...");
  destroy_hw_wdog_thread();
  log_line("destroy_ipc_thread...");
  get_partition_flag();
  log_line("total crash time = ", get_total_crash());

  switch (decision) {
    case POWER_OFF:
    case REBOOT: {
      clear_crash_time();
      // The prompt plays while the daemons stop; the board goes down once it has ended.
      bool prompt = !requested_prompt().empty();
      if (prompt) create_snd_thread();
      send_ipc_msg(MSG_SHUTDOWN_WATCHDOG_ACK, nullptr, 0);
      cpu_performance();
      log_line("set cpu to performance mode then shutdown all process");
      ProcessManagement.KillAllProcess(KILL_WAIT_LOGD);
      if (prompt) destroy_snd_thread();
      shut_down(decision == POWER_OFF ? "shutdown -h now" : "shutdown -r now");
    }
    case CRASH_REBOOT:
      // The crash counter stays: the next boot still knows how this one ended.
      cpu_performance();
      log_line("crash reboot, set cpu to performance mode then shutdown all process");
      ProcessManagement.KillAllProcess(KILL_WAIT_LOGD);
      shut_down("shutdown -r now");
    default:
      break;
  }
  set_crash_flag(1);
  if (ProcessManagement.KillAllProcess(KILL_WAIT) != 0) {
    log_line("some process did not response to SIGKILL, reboot");
    tq_system("reboot");
  } else {
    log_line("all process exit, custodo exit and wait upstart to restart myself");
  }
  end_process(1);
}

}  // namespace

void run_main_loop() {
  tq_overwrite_int(kStatGroup, 3, gStatInfo[5].load(std::memory_order_relaxed));
  tq_overwrite_int(kStatGroup, 4, gStatInfo[4].load(std::memory_order_relaxed));
  for (;;) {
    int event = 0;
    if (OS_RecvQueue(&event, 0) == 0) continue;
    note_progress();
    switch (event) {
      case CHECK_PROCESS:
        if (Decision decision = check_processes(); decision != STAY) leave(decision);
        break;
      case RESET_QUOM:
        reset_cloud_client();
        break;
      case SHUTDOWN_SYSTEM:
        leave(POWER_OFF);
      case REBOOT_SYSTEM:
        leave(REBOOT);
      default:
        break;
    }
  }
}
