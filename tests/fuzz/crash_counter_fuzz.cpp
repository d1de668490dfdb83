// The crash counter file: read as a count, and counted on from there.
#include <cstdlib>

#include "crash/crash_counter.h"
#include "platform/board_paths.h"
#include "tests/fuzz/fuzz_board.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  write_input(board_path(BoardPath::FailureCount), data, size);
  if (get_total_crash() < 0 || get_current_crash() < 0) std::abort();
  add_crash_time();
  // What the supervisor writes back is a count, with fewer than five in the current group.
  if (get_total_crash() <= 0 || get_current_crash() >= 5) std::abort();
  return 0;
}
