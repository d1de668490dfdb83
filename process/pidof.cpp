#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log_line.h"
#include "core/shell.h"
#include "process/process_management.h"

int RobotProcessManagement::PidOf(const char* name) {
  char cmdline[512];
  std::snprintf(cmdline, sizeof cmdline, "pidof -x %s", name);
  FILE* pipe = popen(cmdline, "r");
  if (pipe == nullptr) {
    log_line("pipe open failed");
    return -1;
  }
  int result = -1;
  char line[1024];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    // pidof puts several ids on one line, separated by blanks.
    result = std::strchr(line, ' ') != nullptr ? -2 : static_cast<int>(std::strtol(line, nullptr, 10));
  }
  pclose(pipe);
  return result;
}

int RobotProcessManagement::ReCheck(ProcessInfo& rec) {
  int id = PidOf(rec.Name.c_str());
  if (id == -2) {
    // Duplicates cannot be told apart from the right one: all go, and monitoring starts afresh.
    log_line("more than one process exist! kill them all");
    char cmdline[512];
    std::snprintf(cmdline, sizeof cmdline, "killall -9 %s", rec.Name.c_str());
    tq_system(cmdline);
    return 0;
  }
  if (id >= 1) {
    rec.pid = id;
    log_line("pid of ", rec.Name, " :", id);
    return 1;
  }
  return 0;
}

void RobotProcessManagement::CheckAllProcess() {
  for (ProcessInfo& rec : processes) rec.pid = PidOf(rec.Name.c_str());
}
