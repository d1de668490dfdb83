#include "core/shell.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "core/log_line.h"

extern char** environ;

namespace {

// A child must be waited for, whatever the caller did with SIGCHLD: an ignored SIGCHLD would
// reap it unseen. Returns the disposition to put back.
struct sigaction wait_for_children() {
  struct sigaction fallback{};
  struct sigaction kept{};
  fallback.sa_handler = SIG_DFL;
  sigemptyset(&fallback.sa_mask);
  sigaction(SIGCHLD, &fallback, &kept);
  return kept;
}

}  // namespace

int tq_system(const char* cmdline) {
  struct sigaction kept = wait_for_children();
  log_line("tq_system: ", cmdline);
  int status = std::system(cmdline);
  sigaction(SIGCHLD, &kept, nullptr);

  if (status == -1) {
    log_line("tq_system %s error! ", cmdline);
    return 255;
  }
  int code = (status >> 8) & 0xff;
  if ((status & 0x7f) != 0) {
    // A shell ended by a signal has no exit code: reported as 0, like success.
    log_line("exit status = ", code);
    return code;
  }
  if (code == 0) {
    log_line("run shell script successfully. ");
    return 0;
  }
  log_line("run shell script fail, script exit code:  ", code);
  log_line("run shell script fail, cmdline:  ", cmdline);
  return code;
}

int run_program(const char* dir, const char* const argv[]) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, dir);
  struct sigaction kept = wait_for_children();
  pid_t pid = -1;
  int status = -1;
  // posix_spawnp takes the arguments as char* const[] but does not write to them.
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, const_cast<char* const*>(argv), environ) == 0)
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  sigaction(SIGCHLD, &kept, nullptr);
  posix_spawn_file_actions_destroy(&actions);
  return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}
