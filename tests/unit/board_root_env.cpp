// Every test of this binary runs on one temporary board root, made before the first test and
// named in CUSTODO_BOARD_ROOT before anything asks for a board path (the paths are fixed on
// first use). The root holds the directories of every board path and a millisecond counter
// standing at 0, as on a board that has just booted; it is removed at the end.
#include <ftw.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/board_paths.h"

namespace {

void make_dirs(const std::string& path) {
  for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
    mkdir(path.substr(0, at).c_str(), 0755);
  mkdir(path.c_str(), 0755);
}

class BoardRootEnv : public ::testing::Environment {
 public:
  void SetUp() override {
    char dir[] = "/tmp/cu-XXXXXX";  // short: socket paths live below it
    ASSERT_NE(mkdtemp(dir), nullptr);
    root_ = dir;
    setenv("CUSTODO_BOARD_ROOT", dir, 1);
    // Board sleeps (a pause after an update phase, kill time-outs) take milliseconds here.
    setenv("CUSTODO_SIM_TIMESCALE", "1000", 1);
    for (int i = 0; i < static_cast<int>(BoardPath::Count); ++i) {
      std::string path = board_path(static_cast<BoardPath>(i));
      make_dirs(path.substr(0, path.rfind('/')));
    }
    make_dirs(root_ + "/sim/mcu");
    std::ofstream(root_ + "/dev/jiffies", std::ios::binary) << std::string(8, '\0');
  }

  void TearDown() override {
    if (!root_.empty())
      nftw(
          root_.c_str(),
          [](const char* path, const struct stat*, int, FTW*) { return remove(path); }, 16,
          FTW_DEPTH | FTW_PHYS);
  }

 private:
  std::string root_;
};

::testing::Environment* const board_root_env =
    ::testing::AddGlobalTestEnvironment(new BoardRootEnv);

}  // namespace
