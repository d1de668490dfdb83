#include "process/own_processes.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/shell.h"
#include "core/spawn.h"

namespace {

constexpr size_t kOutputLimit = 64 * 1024;

// Both users: a set-user-id program that another user started under a daemon's name runs
// with our effective user but keeps its real one.
bool own_process(pid_t pid) {
  std::string path = "/proc/" + std::to_string(pid) + "/status";
  FILE* status = std::fopen(path.c_str(), "re");
  if (status == nullptr) return false;
  bool own = false;
  char line[256];
  unsigned real = 0, effective = 0;
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::sscanf(line, "Uid: %u %u", &real, &effective) == 2) {
      own = real == geteuid() && effective == geteuid();
      break;
    }
  }
  std::fclose(status);
  return own;
}

// The owner is read once the pidfd holds the process, so that an id another process took
// meanwhile is never signalled; a kernel without pidfds gets a plain kill.
bool kill_if_own(pid_t pid) {
  int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  if (fd < 0 && errno != ENOSYS) return false;  // gone already
  bool killed = false;
  if (own_process(pid)) {
    killed = (fd >= 0 ? syscall(SYS_pidfd_send_signal, fd, SIGKILL, nullptr, 0)
                      : kill(pid, SIGKILL)) == 0;
  }
  if (fd >= 0) close(fd);
  return killed;
}

}  // namespace

bool own_processes(const char* const search[], std::vector<pid_t>* ids) {
  std::string output;
  if (run_child_output(search, &output, kOutputLimit) == -1 && output.empty()) return false;
  const char* at = output.c_str();
  char* end = nullptr;
  for (long id; (id = std::strtol(at, &end, 10)), end != at; at = end) {
    if (id > 0 && own_process(static_cast<pid_t>(id))) ids->push_back(static_cast<pid_t>(id));
  }
  return true;
}

int kill_own_processes(const char* cmdline, const char* const search[]) {
  return tq_system_in_process(cmdline, [search] {
    std::vector<pid_t> ids;
    own_processes(search, &ids);
    int killed = 0;
    for (pid_t pid : ids) killed += kill_if_own(pid);
    return killed > 0 ? 0 : 1;
  });
}
