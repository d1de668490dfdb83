#include "sim/board/board_events.h"

#include <unistd.h>

#include "sim/common/sim_files.h"

void board_event(const std::string& line) {
  sim::record(sim::kInitLog, line);
  std::string told = "[board] " + line + "\n";
  ssize_t ignored = write(STDERR_FILENO, told.data(), told.size());
  (void)ignored;
}
