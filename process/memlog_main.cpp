// custodo-memlog: a debug command that writes one memory snapshot of every process to
// ./MemoryLog.txt and exits. The supervisor itself never takes one.
#include <cstdio>
#include <string>

#include "platform/board_paths.h"
#include "process/memory_log.h"

int main() {
  std::string refusal = board_check();
  if (!refusal.empty()) {
    std::fprintf(stderr, "custodo-memlog: %s\n", refusal.c_str());
    return 1;
  }
  proceed_log_recording();
  return 0;
}
