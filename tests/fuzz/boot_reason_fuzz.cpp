// The boot-reason word: read before the merge, and again before the crash flag is set in it.
#include "crash/boot_reason.h"
#include "platform/board_paths.h"
#include "tests/fuzz/fuzz_board.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  write_input(board_path(BoardPath::BootReason), data, size);
  merge_boot_reason(-1);
  write_input(board_path(BoardPath::BootReason), data, size);
  set_crash_flag(1);
  return 0;
}
