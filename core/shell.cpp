#include "core/shell.h"

#include <csignal>
#include <cstdlib>

#include "core/log_line.h"

int tq_system(const char* cmdline) {
  // system() must see its own child's exit, whatever the caller did with SIGCHLD.
  struct sigaction fallback{};
  struct sigaction kept{};
  fallback.sa_handler = SIG_DFL;
  sigemptyset(&fallback.sa_mask);
  sigaction(SIGCHLD, &fallback, &kept);
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
