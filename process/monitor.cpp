#include <signal.h>

#include "core/log_line.h"
#include "crash/crash_stat.h"
#include "process/process_management.h"
#include "process/update_phase.h"

std::atomic<int> appbridge_alive{1};

namespace {

bool alive(int pid) { return pid > 0 && kill(pid, 0) == 0; }

// StartProc did not start these, so their absence is no crash.
bool held_back_for_update(const std::string& name) {
  return cloud_client_held_back() && (name == "quom_client" || name == "quom_client_helper_nomqtt.sh");
}

}  // namespace

int RobotProcessManagement::InitialMonitor() {
  CheckAllProcess();
  for (const ProcessInfo& rec : processes) {
    if (rec.pid < 1) log_line("Process ", rec.Name, " Not in running mode");
  }
  return 1;
}

int RobotProcessManagement::Monitor(const int&) {
  int result = 0;
  for (ProcessInfo& entry : processes) {
    // Restarts go through a copy: the list keeps the old id until InitialMonitor runs.
    ProcessInfo rec = entry;
    bool is_upgrader = rec.Name == "Upgrader";
    bool is_appbridge = rec.Name == "AppBridge";
    if (alive(rec.pid)) {
      if (is_appbridge) appbridge_alive.store(1, std::memory_order_relaxed);
      continue;
    }
    if (held_back_for_update(rec.Name)) continue;
    // The update process ends by itself once its phase is done: it is looked for quietly.
    if (!is_upgrader) log_line("Process: ", rec.pid, " ", rec.Name, " disappeared??");
    if (is_appbridge) appbridge_alive.store(0, std::memory_order_relaxed);

    if (ReCheck(entry)) continue;
    if (rec.KeyProc == 1) {
      log_line("key process crash, restart all");
      stat_crash(rec.Name);
      return 2;
    }
    // StartProc reports the update process's relaunches itself.
    if (!is_upgrader) stat_crash(rec.Name);
    if (StartProc(rec) == 1) {
      log_line("StartProc finished");
      result = 3;
    }
  }
  return result;
}
