// The process list: lines cut into fields, the times read and held to their range.
#include <cstdlib>

#include "platform/board_paths.h"
#include "process/process_management.h"
#include "tests/fuzz/fuzz_board.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = board_root() + "/ProcessList.conf";
  write_input(path, data, size);
  RobotProcessManagement list;
  // The integrity check's verdict from the input, so that both readings are walked.
  list.SetIntegrityFailed(size % 2 == 1);
  list.InitialConfig(path);
  for (const ProcessInfo& rec : list.processes)
    if (rec.KillTimeout < 0 || rec.WaitAfterStart < 0) std::abort();
  return 0;
}
