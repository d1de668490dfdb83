#include "process/upgrader_policy.h"

#include <sys/sysinfo.h>

#include "core/log_line.h"
#include "core/shell.h"
#include "crash/crash_stat.h"
#include "ipc/messages.h"
#include "ipc/send.h"
#include "platform/bootflag.h"
#include "process/process_management.h"
#include "status/snapshot.h"
#include "update/boot_flags.h"

namespace {

// Launches since program start or since the last give-up, and the uptime of the last one.
int upgrader_launch_count = 0;
int upgrader_last_launch = 0;

constexpr int kRelaunchWindowSeconds = 4;

// Seconds since the board booted.
int get_uptime() {
  struct sysinfo info {};
  int result = sysinfo(&info);
  if (result != 0) print_raw("code error = %d\n", result);
  return static_cast<int>(info.uptime);
}

const char* flag_text(int flag) {
  return _UpdateProgress2String(static_cast<_BL_UpdateProgressFlag>(flag));
}

void give_up_update() {
  g_upgrader_normal_exit.store(0, std::memory_order_relaxed);
  upgrader_launch_count = 0;
  upgrader_last_launch = 0;
  // The boot loader's result does not change what follows: the controller is told either way.
  (void)BlSetUpdateProgressFlag(UpdateProgress_Phase_NS);
  status_update_progress(UpdateProgress_Phase_NS);
  log_line("Notify Controller that Upgrader encounter internal error");
  send_ipc_msg(MSG_UPDATE_INTERNAL_ERROR, nullptr, 0);
}

}  // namespace

UpgraderDecision upgrader_decision(int launch_count, int last_launch, int now) {
  if (launch_count > 1 && last_launch != 0 && now - last_launch > kRelaunchWindowSeconds) {
    return UPGRADER_GIVE_UP;
  }
  return launch_count >= 1 ? UPGRADER_RELAUNCH : UPGRADER_FIRST_LAUNCH;
}

int start_upgrader(const std::string& name) {
  if (g_upgrader_normal_exit.load(std::memory_order_relaxed) != 1) return 0;

  int now = get_uptime();
  log_line("StartProc: UpdateProgress flag = ", flag_text(g_upgrader_flag.load(std::memory_order_relaxed)));
  switch (upgrader_decision(upgrader_launch_count, upgrader_last_launch, now)) {
    case UPGRADER_GIVE_UP:
      give_up_update();
      return 0;
    case UPGRADER_RELAUNCH:
      stat_crash(name);
      break;
    case UPGRADER_FIRST_LAUNCH:
      break;
  }
  // Counted before the flag is looked at: a launch refused for a bad flag still counts.
  upgrader_launch_count++;
  upgrader_last_launch = get_uptime();

  int flag = g_upgrader_flag.load(std::memory_order_relaxed);
  const char* phase = nullptr;
  switch (flag) {
    case UpdateProgress_Phase_0: phase = "0"; break;
    case UpdateProgress_Phase_1: phase = "1"; break;
    case UpdateProgress_Phase_2: phase = "2"; break;
    default:
      log_line("Invalid UpdateProgress flag (", flag_text(flag), ") for StartProc");
      return 0;
  }
  std::string command = std::string("Upgrader -p ") + phase;
  tq_system((command + "&").c_str());
  log_line("'", command, "' process started in background");
  return 1;
}
