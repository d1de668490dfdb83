#include "tests/common/scratch_board.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/board_paths.h"

namespace {

std::string root;

void remove_root() {
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
}

}  // namespace

std::string make_scratch_board() {
  char dir[] = "/dev/shm/cu-XXXXXX";
  if (mkdtemp(dir) == nullptr) return "";
  root = dir;
  std::atexit(remove_root);
  setenv("CUSTODO_BOARD_ROOT", dir, 1);
  // A pause after an update phase or a kill time-out takes a fraction of a millisecond.
  setenv("CUSTODO_SIM_TIMESCALE", "10000", 1);
  std::error_code error;
  for (int i = 0; i < static_cast<int>(BoardPath::Count); ++i)
    std::filesystem::create_directories(
        std::filesystem::path(board_path(static_cast<BoardPath>(i))).parent_path(), error);
  std::filesystem::create_directories(root + "/sim/mcu", error);
  std::ofstream(root + "/dev/jiffies", std::ios::binary) << std::string(8, '\0');
  return root;
}
