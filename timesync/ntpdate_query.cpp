#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "core/log_line.h"
#include "core/spawn.h"
#include "timesync/ntp_query.h"

namespace {
constexpr int kLineBytes = 1024;
}

// Only the summary line names the "time server"; the per-server lines also carry an offset.
// An offset that is no finite number of seconds within an int reads as no offset.
bool ntpdate_offset(const char* line, double* seconds) {
  const char* offset = std::strstr(line, "offset");
  double value = 0;
  if (std::strstr(line, "time server") == nullptr || offset == nullptr ||
      std::sscanf(offset, "offset %lf sec", &value) != 1)
    return false;
  if (!std::isfinite(value) || value <= INT_MIN - 1.0 || value >= INT_MAX + 1.0) return false;
  *seconds = value;
  return true;
}

int ntpdate_read(FILE* output, double* seconds) {
  char line[kLineBytes];
  while (std::fgets(line, sizeof line, output) != nullptr) {
    log_line("ntpdate return:", line);
    if (std::strstr(line, "time server") == nullptr) continue;
    // The summary line is logged twice: log readers on the robots count on the pair.
    log_line("ntpdate return:", line);
    if (ntpdate_offset(line, seconds)) return 1;
  }
  return 0;
}

int ntpdate_query(const char* command, int* offset) {
  int result = 0;
  double seconds = 0;
  const char* const argv[] = {"/bin/sh", "-c", command, nullptr};
  int fd = -1;
  pid_t pid = spawn_child(argv, &fd);
  FILE* pipe = pid < 0 ? nullptr : fdopen(fd, "re");
  if (pipe == nullptr) {
    log_line("pipe open failed");
    if (pid >= 0) {
      close(fd);
      wait_child(pid);
    }
  } else {
    result = ntpdate_read(pipe, &seconds);
    std::fclose(pipe);
    wait_child(pid);
  }
  *offset = static_cast<int>(seconds);  // towards zero
  // The success flag, not the offset, comes first: "time offset 1s (-0.734521s)".
  log_line("time offset ", result, "s (", seconds, "s)");
  return result;
}
