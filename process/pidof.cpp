#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log_line.h"
#include "core/shell.h"
#include "core/spawn.h"
#include "process/exit_watch.h"
#include "process/policy.h"
#include "process/process_management.h"

namespace {
constexpr size_t kOutputLimit = 64 * 1024;
}

// The board's own pidof answers; the name goes to it as one word, never through a shell.
int RobotProcessManagement::PidOf(const char* name) {
  const char* const argv[] = {"pidof", "-x", name, nullptr};
  std::string output;
  if (run_child_output(argv, &output, kOutputLimit) == -1 && output.empty()) {
    log_line("pipe open failed");
    return -1;
  }
  int result = -1;
  size_t begin = 0;
  while (begin < output.size()) {
    size_t end = output.find('\n', begin);
    std::string line = output.substr(begin, end == std::string::npos ? end : end + 1 - begin);
    // pidof puts several ids on one line, separated by blanks.
    result = line.find(' ') != std::string::npos ? -2 : static_cast<int>(std::strtol(line.c_str(), nullptr, 10));
    begin = end == std::string::npos ? output.size() : end + 1;
  }
  return result;
}

int RobotProcessManagement::ReCheck(ProcessInfo& rec) {
  int id = PidOf(rec.Name.c_str());
  if (id == -2) {
    // Duplicates cannot be told apart from the right one: all go, and monitoring starts afresh.
    log_line("more than one process exist! kill them all");
    std::string cmdline = "killall -9 " + rec.Name;
    const char* const argv[] = {"killall", "-9", rec.Name.c_str(), nullptr};
    tq_system_direct(cmdline.c_str(), argv);
    return 0;
  }
  if (id >= 1) {
    rec.pid = id;
    exit_watch_follow(processes);
    policy_follow(processes);
    log_line("pid of ", rec.Name, " :", id);
    return 1;
  }
  return 0;
}

void RobotProcessManagement::CheckAllProcess() {
  for (ProcessInfo& rec : processes) rec.pid = PidOf(rec.Name.c_str());
  exit_watch_follow(processes);
  policy_follow(processes);
}
