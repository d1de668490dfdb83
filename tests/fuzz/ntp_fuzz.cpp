// The NTP server list, and ntpdate's output: the input read as either.
#include <cstdio>

#include "platform/board_paths.h"
#include "tests/fuzz/fuzz_board.h"
#include "timesync/ntp_query.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string dir = board_root() + "/opt/belvane/watchdog";
  write_input(dir + "/ntpserver.conf", data, size);
  ntp_list.clear();
  read_config(dir.c_str());
  FILE* output = fmemopen(const_cast<uint8_t*>(data), size, "r");
  if (output == nullptr) return 0;
  double seconds = 0;
  // The offset is then truncated as the query does.
  volatile int whole = ntpdate_read(output, &seconds) ? static_cast<int>(seconds) : 0;
  (void)whole;
  std::fclose(output);
  return 0;
}
