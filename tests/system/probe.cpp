// custodo-probe: the supervisor's log line, clock and shell runner, called one at a time on a
// simulated board, so that system tests can check their exact output.
#include <cstdio>
#include <cstring>

#include "core/log_line.h"
#include "core/ms_clock.h"
#include "core/shell.h"

int main(int argc, char* argv[]) {
  if (argc == 3 && std::strcmp(argv[1], "log") == 0) {
    log_line(argv[2]);
    return 0;
  }
  if (argc == 2 && std::strcmp(argv[1], "clock") == 0) {
    std::printf("%llu\n", static_cast<unsigned long long>(get_cur_time_ms()));
    return 0;
  }
  if (argc == 3 && std::strcmp(argv[1], "system") == 0) return tq_system(argv[2]);
  std::fprintf(stderr, "usage: custodo-probe log TEXT | clock | system CMDLINE\n");
  return 2;
}
