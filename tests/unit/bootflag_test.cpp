#include "platform/bootflag.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <tuple>

#include "platform/board_paths.h"
#include "tests/common/boot_environment.h"
#include "tests/unit/helpers.h"

namespace {

TEST(BootFlags, MissingOrBrokenValuesFail) {
  ASSERT_TRUE(make_environment(true, {{"partition_flag_1", "yes"}, {"update_progress_flag", "3x"}}));
  int flag = 7;
  _BL_UpdateProgressFlag progress = UpdateProgress_Phase_0;
  EXPECT_EQ(BlGetPartitionFlag(1, &flag), -EINVAL);
  EXPECT_EQ(BlGetPartitionFlag(2, &flag), -ENOENT);
  EXPECT_EQ(BlGetUpdateProgressFlag(&progress), -EINVAL);
  // Nothing is stored into the results of a failed read.
  EXPECT_EQ(std::make_tuple(flag, progress), std::make_tuple(7, UpdateProgress_Phase_0));
  EXPECT_LT(BlGetPartitionFlag(3, &flag), 0);
  EXPECT_LT(BlSetPartitionFlag(0, 1), 0);
  break_environment();
  EXPECT_LT(BlGetPartitionFlag(1, &flag), 0);
  EXPECT_LT(BlSetPartitionFlag(1, 1), 0);
}

TEST(BootPartition, KeyStartsABlankSeparatedWord) {
  const std::pair<const char*, int> rows[] = {
      {"console=ttyS0 boot_fs=2 quiet\n", 2}, {"root=/dev/a\tboot_fs=1", 1}, {"boot_fs=17 rw", 17},
      {"boot_fs=1 boot_fs=2", 2},  // the last one counts
      {"xboot_fs=2 rw", -ENOENT},  {"", -ENOENT}, {nullptr, -ENOENT},
      {"boot_fs= rw", -EINVAL},    {"boot_fs=2a", -EINVAL}, {"boot_fs=99999999999", -ERANGE},
  };
  for (const auto& [cmdline, expected] : rows) {
    write_text(board_path(BoardPath::KernelCmdline), cmdline);
    EXPECT_EQ(BlGetBootPartition("boot_fs="), expected) << (cmdline ? cmdline : "(no file)");
  }
}

}  // namespace
