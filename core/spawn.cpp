#include "core/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>
#include <vector>

#include "core/signals.h"

extern char** environ;

namespace {

std::mutex children_lock;
int children = 0;  // started and not yet waited for
struct sigaction before_children;

void child_starts() {
  std::lock_guard<std::mutex> hold(children_lock);
  if (children++ > 0) return;
  struct sigaction fallback {};
  fallback.sa_handler = SIG_DFL;
  sigemptyset(&fallback.sa_mask);
  sigaction(SIGCHLD, &fallback, &before_children);
}

void child_waited() {
  std::lock_guard<std::mutex> hold(children_lock);
  if (--children == 0) sigaction(SIGCHLD, &before_children, nullptr);
}

// Our environment with `variable` set in it, replacing one of the same name.
std::vector<char*> environment_with(const char* variable) {
  size_t name_length = std::strchr(variable, '=') + 1 - variable;
  std::vector<char*> list;
  for (char** entry = environ; *entry != nullptr; ++entry)
    if (std::strncmp(*entry, variable, name_length) != 0) list.push_back(*entry);
  list.push_back(const_cast<char*>(variable));
  list.push_back(nullptr);
  return list;
}

}  // namespace

pid_t spawn_child(const char* const argv[], int* output, const char* dir, const char* variable) {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  int pipe_ends[2] = {-1, -1};
  if (output != nullptr) {
    if (pipe2(pipe_ends, O_CLOEXEC) != 0) return -1;
    posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], STDOUT_FILENO);
  }
  child_starts();
  if (dir != nullptr) posix_spawn_file_actions_addchdir_np(&actions, dir);
  // Whatever another thread opened without close-on-exec stays with the supervisor.
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

  std::vector<char*> environment;
  if (variable != nullptr) environment = environment_with(variable);
  pid_t pid = -1;
  int error = posix_spawnp(&pid, argv[0], &actions, &attributes, const_cast<char* const*>(argv),
                           variable != nullptr ? environment.data() : environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (output != nullptr) {
    close(pipe_ends[1]);
    if (error == 0)
      *output = pipe_ends[0];
    else
      close(pipe_ends[0]);
  }
  if (error != 0) {
    child_waited();
    errno = error;
    return -1;
  }
  return pid;
}

int wait_child(pid_t pid) {
  // The child's pidfd lets a stop request end the wait the moment it comes; without one (a
  // kernel before 5.3) only a signal that interrupts the wait does.
  int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  int status = 0;
  for (;;) {
    if (fd >= 0 && wait_readable(fd) != 0) {
      close(fd);
      fd = -1;
    }
    pid_t ended = waitpid(pid, &status, fd >= 0 ? WNOHANG : 0);
    if (ended == pid) break;
    if (ended < 0 && errno != EINTR) {
      status = -1;
      break;
    }
    stop_if_requested();
  }
  if (fd >= 0) close(fd);
  child_waited();
  return status;
}

int run_child(const char* const argv[], const char* dir, const char* variable) {
  pid_t pid = spawn_child(argv, nullptr, dir, variable);
  return pid < 0 ? -1 : wait_child(pid);
}

int run_child_output(const char* const argv[], std::string* output, size_t limit) {
  int fd = -1;
  pid_t pid = spawn_child(argv, &fd);
  if (pid < 0) return -1;
  char buffer[512];
  while (wait_readable(fd) == 0) {
    ssize_t n = read(fd, buffer, sizeof buffer);
    if (n > 0)
      output->append(buffer, std::min(static_cast<size_t>(n), limit - std::min(limit, output->size())));
    else if (n == 0 || errno != EINTR)
      break;
  }
  close(fd);
  return wait_child(pid);
}
