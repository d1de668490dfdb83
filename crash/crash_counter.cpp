#include "crash/crash_counter.h"

#include <cstdio>
#include <cstdlib>

#include "core/env_number.h"
#include "core/log_line.h"
#include "core/shell.h"
#include "core/state_file.h"
#include "platform/board_paths.h"

namespace {

// The raw value of the counter file; 0 when there is none.
int read_counter_value() {
  FILE* file = std::fopen(board_path(BoardPath::FailureCount), "r");
  if (file == nullptr) return 0;
  char line[16] = {0};
  int value = 0;
  if (std::fgets(line, sizeof line, file) != nullptr) value = static_cast<int>(std::strtol(line, nullptr, 10));
  std::fclose(file);
  return value;
}

}  // namespace

int get_total_crash() {
  int value = read_counter_value();
  return (value >> 8) * 5 + (value & 0xFF);
}

int get_current_crash() { return read_counter_value() & 0xFF; }

void add_crash_time() {
  int total = get_total_crash() + 1;
  int value = total % 5 + ((total / 5) << 8);
  char text[16];
  int length = std::snprintf(text, sizeof text, "%d", value);
  if (write_state_file(board_path(BoardPath::FailureCount), text, static_cast<size_t>(length)) < 0) {
    log_line("add_crash_time failed");
    return;
  }
  log_line("add_crash_time total = ", total, " value = ", value);
}

int clear_crash_time() {
  char cmdline[256];
  std::snprintf(cmdline, sizeof cmdline, "rm -rf %s", board_path(BoardPath::FailureCount));
  return tq_system(cmdline);
}

int get_crash_ignore_time() { return env_decimal("CRASH_IGNORE_MIN", 600); }
