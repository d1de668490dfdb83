// Every test of this binary runs on one scratch board root, made before the first test and
// removed at the end.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/common/scratch_board.h"

namespace {

class BoardRootEnv : public ::testing::Environment {
 public:
  void SetUp() override {
    root_ = make_scratch_board();
    ASSERT_FALSE(root_.empty());
    // Board sleeps (a pause after an update phase, kill time-outs) take milliseconds here.
    setenv("CUSTODO_SIM_TIMESCALE", "1000", 1);
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
