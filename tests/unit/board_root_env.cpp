// Every test of this binary runs on one temporary board root, made before the first test and
// named in CUSTODO_BOARD_ROOT before anything asks for a board path (the paths are fixed on
// first use). The root holds the directories of every board path and a millisecond counter
// standing at 0, as on a board that has just booted; it is removed at the end.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/board_paths.h"

namespace {

class BoardRootEnv : public ::testing::Environment {
 public:
  void SetUp() override {
    char dir[] = "/tmp/cu-XXXXXX";  // short: socket paths live below it
    ASSERT_NE(mkdtemp(dir), nullptr);
    root_ = dir;
    setenv("CUSTODO_BOARD_ROOT", dir, 1);
    // Board sleeps (a pause after an update phase, kill time-outs) take milliseconds here.
    setenv("CUSTODO_SIM_TIMESCALE", "1000", 1);
    for (int i = 0; i < static_cast<int>(BoardPath::Count); ++i)
      std::filesystem::create_directories(
          std::filesystem::path(board_path(static_cast<BoardPath>(i))).parent_path());
    std::filesystem::create_directories(root_ + "/sim/mcu");
    std::ofstream(root_ + "/dev/jiffies", std::ios::binary) << std::string(8, '\0');
  }

  void TearDown() override {
    std::error_code ignored;
    if (!root_.empty()) std::filesystem::remove_all(root_, ignored);
  }

 private:
  std::string root_;
};

::testing::Environment* const board_root_env =
    ::testing::AddGlobalTestEnvironment(new BoardRootEnv);

}  // namespace
