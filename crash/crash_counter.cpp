#include "crash/crash_counter.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/env_number.h"
#include "core/log_line.h"
#include "core/shell.h"
#include "platform/state_file.h"
#include "platform/board_paths.h"
#include "status/snapshot.h"

namespace {

constexpr int kPerGroup = 5;
// The most crashes whose encoding still fits an int.
constexpr int kMostCrashes = (INT_MAX >> 8) * kPerGroup + kPerGroup - 1;

// The raw value of the counter file; 0 when there is none. A value that is no count (negative,
// or beyond an int) reads as 0: it would make the supervisor wait on every start and never
// reach the crash reboot.
int read_counter_value() {
  FILE* file = std::fopen(board_path(BoardPath::FailureCount), "re");
  if (file == nullptr) return 0;
  char line[16] = {0};
  long value = 0;
  if (std::fgets(line, sizeof line, file) != nullptr) {
    errno = 0;
    value = std::strtol(line, nullptr, 10);
    if (errno == ERANGE || value < 0 || value > INT_MAX) {
      log_line("read failure_count: not a crash count: ", std::string(line, std::strcspn(line, "\n")),
               ", taken as 0");
      value = 0;
    }
  }
  std::fclose(file);
  return static_cast<int>(value);
}

// A power cut between a write and its rename leaves the temporary behind. The supervisor is
// the counter's only writer, so any temporary of it found before a write is stale.
void remove_stale_temporaries() {
  std::string path = board_path(BoardPath::FailureCount);
  size_t slash = path.rfind('/');
  std::string prefix = path.substr(slash + 1) + ".";
  DIR* dir = opendir(path.substr(0, slash).c_str());
  if (dir == nullptr) return;
  while (dirent* entry = readdir(dir)) {
    std::string name = entry->d_name;
    if (name.size() == prefix.size() + 6 && name.compare(0, prefix.size(), prefix) == 0)
      unlinkat(dirfd(dir), entry->d_name, 0);
  }
  closedir(dir);
}

}  // namespace

int get_total_crash() {
  int value = read_counter_value();
  return (value >> 8) * kPerGroup + (value & 0xFF);
}

int get_current_crash() { return read_counter_value() & 0xFF; }

void add_crash_time() {
  int total = std::min(get_total_crash(), kMostCrashes - 1) + 1;
  int value = total % kPerGroup + ((total / kPerGroup) << 8);
  char text[16];
  int length = std::snprintf(text, sizeof text, "%d", value);
  remove_stale_temporaries();
  if (write_state_file(board_path(BoardPath::FailureCount), text, static_cast<size_t>(length)) < 0) {
    log_line("add_crash_time failed");
    return;
  }
  log_line("add_crash_time total = ", total, " value = ", value);
  status_crashes(total % kPerGroup, total);
}

int clear_crash_time() {
  char cmdline[256];
  std::snprintf(cmdline, sizeof cmdline, "rm -rf %s", board_path(BoardPath::FailureCount));
  status_crashes(0, 0);
  return tq_system(cmdline);
}

int get_crash_ignore_time() { return env_decimal("CRASH_IGNORE_MIN", 600); }
