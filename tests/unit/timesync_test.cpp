#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <cstdlib>

#include "crash/crash_stat.h"
#include "platform/board_paths.h"
#include "sim/common/sim_files.h"
#include "sim/mculink/mcu_state.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/text_file.h"
#include "timesync/clock_sync_thread.h"
#include "timesync/mcu_clock.h"
#include "timesync/ntp_query.h"

namespace {

TEST(NtpServers, LinesAreTakenAsTheyStandInPieces) {
  const std::string dir = board_root() + "/ntp";
  mkdir(dir.c_str(), 0755);
  const std::string longest(5000, 'x');
  write_text(dir + "/ntpserver.conf", ("# comment\nA\n  B\n\n#" + longest + "\nC").c_str());
  ntp_list.clear();
  std::vector<std::string> log = captured_log([&] { read_config(dir.c_str()); });
  // Only the first piece of a long comment line is a comment.
  const std::string piece(1023, 'x');
  const std::vector<std::string> expected = {"A\n",  "  B\n", "\n", piece, piece, piece,
                                             std::string(5000 - 1022 - 3 * 1023, 'x') + "\n", "C"};
  EXPECT_EQ(ntp_list, expected);
  EXPECT_EQ(log[0], "add ntp server: A");
  EXPECT_EQ(log[1], "");

  log = captured_log([&] { read_config("/nonexistent"); });
  EXPECT_EQ(log, std::vector<std::string>{
                     "open config file failed: /nonexistent/ntpserver.conf use default config"});
  EXPECT_EQ(ntp_list.size(), expected.size());
}

TEST(NtpServers, AskedInTurnAndOffsetsTruncated) {
  // An ntpdate that answers by the server it is asked about.
  const std::string bin = board_root() + "/ntpbin";
  mkdir(bin.c_str(), 0755);
  write_text(bin + "/ntpdate",
             "#!/bin/sh\ncase $2 in\n"
             "A) echo 'server A, offset 7.5, delay 0.1'; echo 'x: adjust time server A offset -0.734521 sec';;\n"
             "B) echo 'x: adjust time server B offset 2.9 sec';;\n"
             "C) echo 'x: step time server C offset -2.9 sec';;\n"
             "*) echo 'garbage';;\nesac\n");
  chmod((bin + "/ntpdate").c_str(), 0755);
  const std::string path = std::getenv("PATH");
  setenv("PATH", (bin + ":" + path).c_str(), 1);

  ntp_list = {"A\n", "B\n", "C\n", "D\n"};
  ntp_cnt = 0;
  const std::pair<int, int> expected[] = {{1, 0}, {1, 2}, {1, -2}, {0, 0}, {1, 0}};
  for (const auto& [result, offset] : expected) {
    int got = 99;
    EXPECT_EQ(sync_time(&got), result);
    EXPECT_EQ(got, offset);
  }
  std::vector<std::string> log = captured_log([] {
    ntp_cnt = 0;
    int offset = 0;
    sync_time(&offset);
  });
  EXPECT_EQ(log, (std::vector<std::string>{
                     "sync with server:ntpdate -q A", "", "ntpdate return:server A, offset 7.5, delay 0.1",
                     "", "ntpdate return:x: adjust time server A offset -0.734521 sec", "",
                     "ntpdate return:x: adjust time server A offset -0.734521 sec", "",
                     "time offset 1s (-0.734521s)"}));
  setenv("PATH", path.c_str(), 1);

  ntp_list.clear();  // nobody to ask: a failed query
  int offset = 5;
  EXPECT_EQ(sync_time(&offset), 0);
  EXPECT_EQ(offset, 0);
}

TEST(NtpdateOutput, OnlyTheSummaryLineCounts) {
  const std::tuple<const char*, bool, double> rows[] = {
      {"adjust time server 10.0.0.1 offset -0.734521 sec", true, -0.734521},
      {"offset 3 sec from time server", true, 3},
      {"time server 10.0.0.1 offset 4", true, 4},
      {"server 10.0.0.1, stratum 2, offset 0.1, delay 0.02", false, 0},
      {"time server 10.0.0.1 offset", false, 0},
      {"time server 10.0.0.1 offset x sec", false, 0},
      {"time server offset nan sec", false, 0},
      {"time server offset -inf sec", false, 0},
      {"time server offset 1e300 sec", false, 0},
      {"time server offset 2147483648 sec", false, 0},
      {"time server offset -2147483648.9 sec", true, -2147483648.9},
  };
  for (const auto& [line, found, seconds] : rows) {
    double got = 0;
    EXPECT_EQ(ntpdate_offset(line, &got), found) << line;
    EXPECT_DOUBLE_EQ(got, seconds) << line;
  }

}

TEST(McuClock, PushedTimeIsSentAsTheMcuLocalTime) {
  std::string error;
  ASSERT_EQ(sim::mcu_state_reset(&error), 0) << error;
  write_text(sim::file(sim::kMcuCalls), "");
  EXPECT_GE(sync_mcu_with_ap(1500000000), 0);
  const std::string calls = read_text(sim::file(sim::kMcuCalls));
  // 1500000000 is 0x59682f00, little-endian; the board's zone is UTC.
  EXPECT_NE(calls.find(" sent_cmd 185 4 002f6859 1 0\n"), std::string::npos) << calls;

  ASSERT_EQ(sim::mcu_state_set({"link=down"}, &error), 0) << error;
  EXPECT_EQ(captured_log([] { EXPECT_EQ(sync_mcu_with_ap(1), -1); }),
            std::vector<std::string>{"sync_mcu_with_ap init_uart failed-1"});
  ASSERT_EQ(sim::mcu_state_reset(&error), 0) << error;
}

}  // namespace

namespace {

TEST(ClockSyncThread, CountsFailuresInAWrappingByteAndEndsWhenAsked) {
  ntp_list.clear();
  ntp_enable = 1;
  gStatInfo[3] = 255;
  std::vector<std::string> log = captured_log([] {
    create_ntp_thread("/nonexistent");  // nobody to ask: every query fails
    for (int ms = 0; ms < 5000 && gStatInfo[3] != 0; ++ms) usleep(1000);
    destroy_ntp_thread();  // within the minute's sleep, a few ms here
  });
  EXPECT_EQ(gStatInfo[3], 0);
  for (const char* line : {"ntp_thread start", "ntpserver no valid response, retry next 60s",
                           "ntp_thread end", "destroy_ntp_thread succ = 0"})
    EXPECT_NE(std::find(log.begin(), log.end(), line), log.end()) << line;
  EXPECT_NE(read_text(board_path(BoardPath::StatLog)).find("tq_stat_int 6 2 1\n"), std::string::npos);
}

}  // namespace
