#include "core/shell.h"

#include <sys/wait.h>


#include "core/log_line.h"
#include "core/spawn.h"
#include "platform/state_file.h"

namespace {

// What the shell's redirection creates under the usual umask (022).
constexpr mode_t kRedirectionMode = 0644;

int log_exit_code(const char* cmdline, int code) {
  if (code == 0) {
    log_line("run shell script successfully. ");
    return 0;
  }
  log_line("run shell script fail, script exit code:  ", code);
  log_line("run shell script fail, cmdline:  ", cmdline);
  return code;
}

int run_logged(const char* cmdline, const char* const argv[], const char* variable) {
  log_line("tq_system: ", cmdline);
  int status = run_child(argv, nullptr, variable);

  if (status == -1) {
    // "%s" stands in the line as it is, followed by the command line: the robots' log readers
    // match the line as it has always been written.
    log_line("tq_system %s error! ", cmdline);
    return 255;
  }
  int code = (status >> 8) & 0xff;
  if ((status & 0x7f) != 0) {
    // A command ended by a signal has no exit code: reported as 0, like success.
    log_line("exit status = ", code);
    return code;
  }
  return log_exit_code(cmdline, code);
}

}  // namespace

int tq_system(const char* cmdline, const char* variable) {
  const char* const argv[] = {"/bin/sh", "-c", cmdline, nullptr};
  return run_logged(cmdline, argv, variable);
}

int tq_system_in_process(const char* cmdline, const std::function<int()>& work) {
  log_line("tq_system: ", cmdline);
  return log_exit_code(cmdline, work());
}

int tq_system_publish(const char* cmdline, const char* path, const std::string& content) {
  return tq_system_in_process(cmdline, [&] {
    return write_state_file(path, content.data(), content.size(), kRedirectionMode) < 0 ? 1 : 0;
  });
}

int run_program(const char* dir, const char* const argv[]) {
  int status = run_child(argv, dir);
  return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}
