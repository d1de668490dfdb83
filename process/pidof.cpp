#include <vector>

#include "core/log_line.h"
#include "process/exit_watch.h"
#include "process/own_processes.h"
#include "process/policy.h"
#include "process/process_management.h"
#include "status/snapshot.h"

// The board's own pidof answers; the name goes to it as one word, never through a shell.
int RobotProcessManagement::PidOf(const char* name) {
  const char* const argv[] = {"pidof", "-x", name, nullptr};
  std::vector<pid_t> ids;
  if (!own_processes(argv, &ids)) {
    log_line("pipe open failed");
    return -1;
  }
  if (ids.empty()) return -1;
  return ids.size() > 1 ? -2 : ids[0];
}

int RobotProcessManagement::ReCheck(ProcessInfo& rec) {
  int id = PidOf(rec.Name.c_str());
  if (id == -2) {
    // Duplicates cannot be told apart from the right one: all go, and monitoring starts afresh.
    log_line("more than one process exist! kill them all");
    std::string cmdline = "killall -9 " + rec.Name;
    const char* const search[] = {"pidof", "-x", rec.Name.c_str(), nullptr};
    kill_own_processes(cmdline.c_str(), search);
    return 0;
  }
  if (id >= 1) {
    rec.pid = id;
    exit_watch_follow(processes);
    policy_follow(processes);
    status_pids(processes);
    log_line("pid of ", rec.Name, " :", id);
    return 1;
  }
  return 0;
}

void RobotProcessManagement::CheckAllProcess() {
  for (ProcessInfo& rec : processes) rec.pid = PidOf(rec.Name.c_str());
  exit_watch_follow(processes);
  policy_follow(processes);
  status_pids(processes);
}
