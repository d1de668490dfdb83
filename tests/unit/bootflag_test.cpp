#include "platform/bootflag.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/board_paths.h"
#include "tests/common/boot_environment.h"
#include "tests/unit/text_file.h"

namespace {

// The environment as the boot loader's own tool reads it.
std::string printenv() {
  std::string command = std::string("fw_printenv -c ") + board_path(BoardPath::FwEnvConfig);
  FILE* pipe = popen(command.c_str(), "r");
  std::string text;
  for (int c; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  EXPECT_EQ(pipe != nullptr ? pclose(pipe) : -1, 0) << command;
  return text;
}

TEST(BootFlags, SingleAndRedundantEnvironmentsReadBackWhatWasStored) {
  for (bool redundant : {false, true}) {
    SCOPED_TRACE(redundant ? "redundant" : "single");
    ASSERT_TRUE(make_environment(redundant, {{"partition_flag_1", "1"}, {"partition_flag_2", "0"},
                                             {"update_progress_flag", "4"}}));
    int flag = -1;
    _BL_UpdateProgressFlag progress = UpdateProgress_Unknown;
    EXPECT_EQ(BlGetPartitionFlag(2, &flag), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(BlGetUpdateProgressFlag(&progress), 0);
    EXPECT_EQ(progress, UpdateProgress_Phase_1_Post);

    // Two stores in a row: a redundant environment writes each to the other copy.
    EXPECT_EQ(BlSetPartitionFlag(2, 1), 0);
    EXPECT_EQ(BlSetUpdateProgressFlag(UpdateProgress_Phase_2_Post), 0);
    EXPECT_EQ(BlGetPartitionFlag(2, &flag), 0);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(BlGetUpdateProgressFlag(&progress), 0);
    EXPECT_EQ(progress, UpdateProgress_Phase_2_Post);
    EXPECT_EQ(printenv(), "partition_flag_1=1\npartition_flag_2=1\nupdate_progress_flag=5\n");
  }
}

TEST(BootFlags, MissingOrBrokenValuesFail) {
  ASSERT_TRUE(
      make_environment(true, {{"partition_flag_1", "yes"}, {"update_progress_flag", "3x"}}));
  int flag = 7;
  _BL_UpdateProgressFlag progress = UpdateProgress_Phase_0;
  EXPECT_EQ(BlGetPartitionFlag(1, &flag), -EINVAL);
  EXPECT_EQ(BlGetPartitionFlag(2, &flag), -ENOENT);
  EXPECT_EQ(BlGetUpdateProgressFlag(&progress), -EINVAL);
  EXPECT_EQ(flag, 7);
  EXPECT_EQ(progress, UpdateProgress_Phase_0);
  EXPECT_LT(BlGetPartitionFlag(3, &flag), 0);
  EXPECT_LT(BlSetPartitionFlag(0, 1), 0);

  break_environment();
  EXPECT_LT(BlGetPartitionFlag(1, &flag), 0);
  EXPECT_LT(BlSetPartitionFlag(1, 1), 0);
}

TEST(BootPartition, KeyStartsABlankSeparatedWord) {
  const std::pair<const char*, int> rows[] = {
      {"console=ttyS0 boot_fs=2 quiet\n", 2},
      {"root=/dev/a\tboot_fs=1", 1},
      {"boot_fs=17 rw", 17},
      {"boot_fs=1 boot_fs=2", 2},
      {"xboot_fs=2 rw", -ENOENT},
      {"", -ENOENT},
      {nullptr, -ENOENT},
      {"boot_fs= rw", -EINVAL},
      {"boot_fs=2a", -EINVAL},
      {"boot_fs=99999999999", -ERANGE},
  };
  for (const auto& [cmdline, expected] : rows) {
    write_text(board_path(BoardPath::KernelCmdline), cmdline);
    EXPECT_EQ(BlGetBootPartition("boot_fs="), expected) << (cmdline ? cmdline : "(no file)");
  }
}

}  // namespace
