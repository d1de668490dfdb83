#include "platform/bootflag.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "platform/board_paths.h"
#include "sim/common/uboot_env_image.h"
#include "tests/unit/boot_environment.h"

namespace {

const sim::EnvVars kFlags = {
    {"partition_flag_1", "1"}, {"partition_flag_2", "0"}, {"update_progress_flag", "4"}};

TEST(BootFlags, ReadWriteAndReopenInSingleAndRedundantEnvironments) {
  for (bool redundant : {false, true}) {
    SCOPED_TRACE(redundant ? "redundant" : "single");
    make_environment(redundant, kFlags);
    int flag = -1;
    _BL_UpdateProgressFlag progress = UpdateProgress_Unknown;
    EXPECT_EQ(BlGetPartitionFlag(1, &flag), 0);
    EXPECT_EQ(flag, 1);
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
    EXPECT_EQ(BlGetPartitionFlag(1, &flag), 0);
    EXPECT_EQ(flag, 1);
  }
}

TEST(BootFlags, MissingOrBrokenValuesFail) {
  make_environment(true, {{"partition_flag_1", "yes"}, {"update_progress_flag", "3x"}});
  int flag = 7;
  _BL_UpdateProgressFlag progress = UpdateProgress_Phase_0;
  EXPECT_EQ(BlGetPartitionFlag(1, &flag), -EINVAL);
  EXPECT_EQ(BlGetPartitionFlag(2, &flag), -ENOENT);
  EXPECT_EQ(BlGetUpdateProgressFlag(&progress), -EINVAL);
  EXPECT_EQ(flag, 7);
  EXPECT_EQ(progress, UpdateProgress_Phase_0);
  EXPECT_LT(BlGetPartitionFlag(3, &flag), 0);
  EXPECT_LT(BlSetPartitionFlag(0, 1), 0);

  std::ofstream(board_path(BoardPath::FwEnvConfig), std::ios::trunc)
      << board_root() << "/sim/absent.env 0x0 0x4000\n";
  EXPECT_LT(BlGetPartitionFlag(1, &flag), 0);
  EXPECT_LT(BlSetPartitionFlag(1, 1), 0);
}

TEST(BootFlags, ImageWriterRefusesWhatTheBootLoaderCouldNotRead) {
  const std::string path = board_root() + "/sim/refused.env";
  // 64 bytes: 4 of CRC (and 1 of flags), "a=" and the value, its '\0', the closing '\0'.
  EXPECT_FALSE(sim::write_uboot_env(path, 64, false, {{"a", std::string(57, 'x')}}));
  EXPECT_TRUE(sim::write_uboot_env(path, 64, false, {{"a", std::string(56, 'x')}}));
  EXPECT_FALSE(sim::write_uboot_env(path, 64, true, {{"a", std::string(56, 'x')}}));
  EXPECT_FALSE(sim::write_uboot_env(path, 64, false, {{"a=b", "1"}}));
  EXPECT_FALSE(sim::write_uboot_env(path, 64, false, {{"", "1"}}));
  EXPECT_FALSE(sim::write_uboot_env(path, 64, false, {{"a", std::string("1\0", 2)}}));
}

TEST(BootPartition, KeyStartsABlankSeparatedWord) {
  struct Row {
    const char* cmdline;
    int expected;
  } rows[] = {
      {"console=ttyS0 boot_fs=2 quiet\n", 2},
      {"boot_fs=1\n", 1},
      {"root=/dev/a\tboot_fs=1", 1},
      {"boot_fs=17 rw", 17},
      {"boot_fs=1 boot_fs=2", 2},
      {"xboot_fs=2 rw", -ENOENT},
      {"", -ENOENT},
      {"boot_fs= rw", -EINVAL},
      {"boot_fs=2a", -EINVAL},
      {"boot_fs=99999999999", -ERANGE},
  };
  for (const Row& row : rows) {
    write_cmdline(row.cmdline);
    EXPECT_EQ(BlGetBootPartition("boot_fs="), row.expected) << row.cmdline;
  }
  std::remove(board_path(BoardPath::KernelCmdline));
  EXPECT_EQ(BlGetBootPartition("boot_fs="), -ENOENT);
}

}  // namespace
