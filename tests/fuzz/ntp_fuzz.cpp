// The NTP server list, and ntpdate's output: the input read as either.
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "platform/board_paths.h"
#include "tests/fuzz/fuzz_board.h"
#include "timesync/ntp_query.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string dir = board_root() + "/opt/belvane/watchdog";
  write_input(dir + "/ntpserver.conf", data, size);
  ntp_list.clear();
  read_config(dir.c_str());
  // Lines are taken as they stand, in pieces of at most 1023 bytes; a comment is skipped.
  for (const std::string& server : ntp_list)
    if (server.size() > 1023 || server[0] == '#') std::abort();
  FILE* output = fmemopen(const_cast<uint8_t*>(data), size, "r");
  if (output == nullptr) return 0;
  double seconds = 0;
  // A found offset is truncated to an int next: it has to fit one.
  if (ntpdate_read(output, &seconds) && !(seconds > INT_MIN - 1.0 && seconds < INT_MAX + 1.0))
    std::abort();
  std::fclose(output);
  return 0;
}
