#include <sys/time.h>

#include <cstdint>
#include <string>

#include "core/shell.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"
#include "timesync/calendar.h"
#include "timesync/ntp_query.h"

int covert_offset(int offset) {
  // The number and a line end, as the shell's echo wrote it; published without following a
  // link that a user of the world-writable directory may have put under the name.
  const char* path = board_path(BoardPath::TimeOffset);
  std::string publish = "echo " + std::to_string(offset) + " > " + path;
  if (offset != 0) tq_system_publish(publish.c_str(), path, std::to_string(offset) + "\n");
  timeval now{};
  board_gettimeofday(&now, nullptr);
  return static_cast<int32_t>(static_cast<int64_t>(now.tv_sec) + offset);
}

int maintain_initial_offset() {
  timeval now{};
  board_gettimeofday(&now, nullptr);
  if (!clock_is_valid(local_time(now.tv_sec))) return 0;
  std::string remove = std::string("rm -rf ") + board_path(BoardPath::TimeOffset);
  return tq_system(remove.c_str());
}
