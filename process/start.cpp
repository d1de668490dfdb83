#include <string>

#include "core/log_line.h"
#include "core/shell.h"
#include "platform/board_time.h"
#include "process/daemon_roles.h"
#include "process/policy.h"
#include "process/process_management.h"
#include "process/update_phase.h"
#include "process/upgrader_policy.h"
#include "status/snapshot.h"
#include "update/boot_flags.h"

namespace {

// A daemon's command line, with what its policy adds to its environment.
void start_daemon(const std::string& name, const char* cmdline) {
  tq_system(cmdline, policy_variable(name));
  policy_started(name);
}

}  // namespace

int RobotProcessManagement::StartProc(ProcessInfo& rec) {
  if (daemon_role::starts_as_upgrader(rec.Name)) return start_upgrader(rec.Name);

  if (daemon_role::starts_as_core_controller(rec.Name)) {
    int flag = g_upgrader_flag.load(std::memory_order_relaxed);
    // During an update CoreCtl runs in its updating mode, whatever the list says.
    if (flag == UpdateProgress_Phase_1) {
      start_daemon(rec.Name, "CoreCtl Updating 1&");
    } else if (flag == UpdateProgress_Phase_2) {
      start_daemon(rec.Name, "CoreCtl Updating 2&");
    } else {
      start_daemon(rec.Name, rec.Cmd.c_str());
    }
    return 1;
  }
  // This also decides for the helper script quom_client_helper_nomqtt.sh, whose name
  // contains the client's.
  if (daemon_role::starts_as_cloud_client(rec.Name) && cloud_client_held_back()) {
    log_line("System is updating, phase-2 not start quom_client");
    status_daemon(rec.Name, DaemonState::HeldBack);
    return 0;
  }
  start_daemon(rec.Name, rec.Cmd.c_str());
  return 1;
}

void RobotProcessManagement::StartAllProcess() {
  log_line("++StartAllProcess g_upgrader_flag == ", g_upgrader_flag.load(std::memory_order_relaxed));
  for (const ProcessInfo& rec : processes) {
    ProcessInfo copy = rec;
    if (StartProc(copy) == 1) status_daemon_started(copy.Name, false);
    log_line("sleep ", copy.WaitAfterStart, " s");
    // A negative value is taken as the unsigned count of seconds it converts to.
    if (!policy_wait_ready(*this, copy)) board_sleep(static_cast<unsigned>(copy.WaitAfterStart));
  }
}
