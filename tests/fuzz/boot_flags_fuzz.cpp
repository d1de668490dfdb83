// The boot loader's variables: the running partition from the kernel command line (the input
// up to a NUL byte), and the flags' values as stored in the environment (the rest).
#include "platform/board_paths.h"
#include "tests/common/boot_environment.h"
#include "tests/fuzz/fuzz_board.h"
#include "update/boot_flags.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string cmdline, value;
  split_input(data, size, &cmdline, &value);
  write_input(board_path(BoardPath::KernelCmdline),
              reinterpret_cast<const uint8_t*>(cmdline.data()), cmdline.size());
  // A value the library refuses leaves nothing to read.
  if (!make_environment(false, {{"partition_flag_1", value},
                                {"partition_flag_2", value},
                                {"update_progress_flag", value}}))
    return -1;
  read_offpart_flag();
  _BL_UpdateProgressFlag flag;
  read_upprog_flag(&flag);
  return 0;
}
