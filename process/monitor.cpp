#include <signal.h>

#include "core/log_line.h"
#include "crash/crash_stat.h"
#include "process/daemon_roles.h"
#include "process/policy.h"
#include "process/process_management.h"
#include "process/update_phase.h"
#include "status/snapshot.h"

std::atomic<int> appbridge_alive{1};

namespace {

bool alive(int pid) { return pid > 0 && kill(pid, 0) == 0; }

// StartProc did not start these, so their absence is no crash.
bool held_back_for_update(const std::string& name) {
  return cloud_client_held_back() && daemon_role::is_cloud_client(name);
}

}  // namespace

int RobotProcessManagement::InitialMonitor() {
  CheckAllProcess();
  for (const ProcessInfo& rec : processes) {
    if (rec.pid < 1) log_line("Process ", rec.Name, " Not in running mode");
  }
  return 1;
}

MonitorResult RobotProcessManagement::Monitor() {
  policy_check(*this);
  MonitorResult result = MONITOR_ALL_WELL;
  for (ProcessInfo& entry : processes) {
    bool is_appbridge = daemon_role::is_app_bridge(entry.Name);
    if (alive(entry.pid)) {
      if (is_appbridge) appbridge_alive.store(1, std::memory_order_relaxed);
      continue;
    }
    if (held_back_for_update(entry.Name)) {
      status_daemon(entry.Name, DaemonState::HeldBack);
      continue;
    }
    RestartTurn turn = policy_restart_turn(entry.Name);
    if (turn == RESTART_WAITS) continue;
    bool is_upgrader = daemon_role::is_upgrader(entry.Name);
    if (turn == RESTART_AS_DESCRIBED) {
      // The update process ends by itself once its phase is done: it is looked for quietly.
      if (!is_upgrader) log_line("Process: ", entry.pid, " ", entry.Name, " disappeared??");
      if (is_appbridge) appbridge_alive.store(0, std::memory_order_relaxed);

      if (ReCheck(entry)) continue;
      status_daemon(entry.Name, DaemonState::Vanished);
      if (entry.KeyProc == 1) {
        log_line("key process crash, restart all");
        stat_crash(entry.Name);
        return MONITOR_KEY_PROCESS_LOST;
      }
      // StartProc reports the update process's relaunches itself.
      if (!is_upgrader) stat_crash(entry.Name);
      if (policy_put_off_restart(entry.Name)) continue;
    }
    // The restart goes through a copy: the list keeps the old id until InitialMonitor runs.
    ProcessInfo rec = entry;
    if (StartProc(rec) == 1) {
      log_line("StartProc finished");
      status_daemon_started(entry.Name, true);
      result = MONITOR_RESTARTED;
    }
  }
  return result;
}
