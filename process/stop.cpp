#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/liveness.h"
#include "core/log_line.h"
#include "platform/board_time.h"
#include "process/exit_watch.h"
#include "process/daemon_roles.h"
#include "process/process_management.h"
#include "status/snapshot.h"

namespace {

// The kernel's own file in every board variant, never a board path.
std::string status_path(int pid) { return "/proc/" + std::to_string(pid) + "/status"; }

bool accepts_signals(int pid) { return pid > 0 && kill(pid, 0) == 0; }

// When the board is about to go down, only the log daemon is given its time, so that it can
// write out what it holds.
bool waits_for_end(KILL_ACTION action, const std::string& name) {
  return action == KILL_WAIT || (action == KILL_WAIT_LOGD && daemon_role::is_log_daemon(name));
}

}  // namespace

int RobotProcessManagement::KillAllProcess(KILL_ACTION action) {
  exit_watch_end();
  // Last started first.
  for (auto it = processes.rbegin(); it != processes.rend(); ++it) {
    if (it->pid >= 1 && StopProcess(*it, action) == 1) it->pid = 0;
  }

  board_sleep(1);
  log_line("Post check");
  for (auto it = processes.rbegin(); it != processes.rend(); ++it) {
    int pid = it->pid;
    if (accepts_signals(pid)) {
      log_line("Zombie Process?? ", pid, " ", it->Name);
      return 1;
    }
  }
  log_line("done.");
  status_all_stopped();
  return 0;
}

int RobotProcessManagement::StopProcess(const ProcessInfo& rec, KILL_ACTION action) {
  int pid = rec.pid;
  log_line("Kill Process: ", pid, " ", rec.Name);
  status_daemon(rec.Name, DaemonState::Stopping);
  note_progress();
  SingleProcessHandler(pid);
  if (waits_for_end(action, rec.Name)) {
    if (WaitProcessEnd(pid, rec.KillTimeout) == 1) {
      log_line("Done.");
      status_daemon(rec.Name, DaemonState::Stopped);
      return 1;
    }
    log_line("Timeout.........try kill -9");
    kill(pid, SIGKILL);
  } else if (action == KILL_NOW || action == KILL_WAIT_LOGD) {
    log_line("force kill -9");
    kill(pid, SIGKILL);
  }
  return 0;
}

int RobotProcessManagement::SingleProcessHandler(int pid) {
  if (pid < 0) return 1;

  std::string path = status_path(pid);
  FILE* status = std::fopen(path.c_str(), "re");
  if (status == nullptr) {
    log_line("read ", path, " file fail!");
    return 1;
  }
  char state = 'R';
  int parent = -1;
  char line[1024];
  while (std::fgets(line, sizeof line, status) != nullptr) {
    char key[1024];
    char value[1024];
    if (std::sscanf(line, "%1023s %1023s", key, value) != 2) continue;
    if (std::string(key) == "State:") state = value[0];
    if (std::string(key) == "PPid:") parent = static_cast<int>(std::strtol(value, nullptr, 10));
  }
  std::fclose(status);

  if (state == 'Z') {
    // A zombie ignores every signal; its parent, which does not reap it, has to go instead.
    // Parent ids 0 and -1 would signal whole process groups.
    if (parent < 1) {
      log_line("no parent to kill for zombie ", pid);
      return 0;
    }
    return kill(parent, SIGKILL) == 0 ? 1 : 0;
  }
  // SIGHUP, not SIGTERM: the robot's daemons end cleanly on a hang-up.
  return kill(pid, SIGHUP) == 0 ? 1 : 0;
}

int RobotProcessManagement::WaitProcessEnd(int pid, int timeout) {
  std::string path = status_path(pid);
  // A negative time-out wraps round to the longest possible wait.
  for (unsigned tries_left = static_cast<unsigned>(timeout); tries_left > 0; tries_left--) {
    FILE* status = std::fopen(path.c_str(), "re");
    if (status == nullptr) return 1;
    board_sleep(1);
    std::fclose(status);
  }
  return 0;
}
