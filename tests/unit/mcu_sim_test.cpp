#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "platform/mculink.h"
#include "sim/common/sim_files.h"
#include "sim/common/wallclock.h"
#include "sim/mculink/mcu_state.h"

namespace {

std::string state_text() {
  std::ifstream in(sim::file(sim::kMcuState));
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The MCU call records written while `calls` ran, without their counter stamps.
template <typename Calls>
std::vector<std::string> recorded(Calls calls) {
  std::remove(sim::file(sim::kMcuCalls).c_str());
  calls();
  std::vector<std::string> lines;
  std::ifstream in(sim::file(sim::kMcuCalls));
  for (std::string line; std::getline(in, line);) lines.push_back(line.substr(line.find(' ') + 1));
  return lines;
}

TEST(McuState, AssignmentsAreCheckedBeforeAnyIsApplied) {
  std::string error;
  ASSERT_EQ(sim::mcu_state_reset(&error), 0) << error;
  struct Row {
    std::vector<std::string> assignments;
    bool valid;
  } rows[] = {
      {{"link=down", "mode=66", "error=-3", "utc=4294967295"}, true},
      {{"pn=AB\\x01C\\\\", "version=", "upgrade_result=-21"}, true},
      {{"link=sideways"}, false},
      {{"mode=3", "mode=three"}, false},
      {{"mode=2147483648"}, false},
      {{"utc=-1"}, false},
      {{"colour=red"}, false},
      {{"utc_anchor_us=5"}, false},
      {{"pn=" + std::string(33, 'P')}, false},
      {{"pn=\\x0"}, false},
      {{"version=two\nlines"}, false},
  };
  for (const Row& row : rows) {
    std::string before = state_text();
    error.clear();
    EXPECT_EQ(sim::mcu_state_set(row.assignments, &error), row.valid ? 0 : -1)
        << row.assignments[0];
    EXPECT_EQ(error.empty(), row.valid) << error;
    if (!row.valid) {
      EXPECT_EQ(state_text(), before) << row.assignments[0];
    }
  }
  sim::McuState state = sim::mcu_state_load();
  EXPECT_EQ(state["link"], "down");
  EXPECT_EQ(sim::mcu_state_number(state, "error"), -3);
  EXPECT_EQ(sim::mcu_state_text(state, "pn"),
            "AB\x01"
            "C\\");
}

TEST(McuLink, CallsAnswerFromTheStateAndAreRecorded) {
  std::string error;
  ASSERT_EQ(sim::mcu_state_reset(&error), 0);
  ASSERT_EQ(sim::mcu_state_set({"mode=3", "error=5", "utc=1500000000", "pn=AB\\x01C",
                                "version=V9.1", "cmd_result=2"},
                               &error),
            0)
      << error;
  sim::set_wallclock(sim::host_realtime_us(), -480, "test");

  int fd = -1, mode = -1, err = 0, cmd = -1;
  uint32_t seconds = 0, local = 0;
  char pn[32];
  unsigned char version[64];
  std::string version_text;
  const uint8_t time_bytes[4] = {0x80, 0xd0, 0xc8, 0x59};
  std::vector<std::string> lines = recorded([&] {
    fd = init_uart();
    mode = check_mcu_mode(fd);
    check_mcu_error(&err);
    get_utc(&seconds);
    local = utc2mcutime(1499971200);
    cmd = sent_cmd(185, 4, time_bytes, 1);
    get_pn(pn);
    check_version(version);
    version_text = FwInfo2Str(version);
    upgrade_mcu_if_not_match("MCU 2.0\r\n", version);
    disable_mcu_heartbeat();
    close_uart();
  });
  // The results are in the records; the values handed back through pointers are checked here.
  EXPECT_GE(fd, 0);
  EXPECT_EQ(mode, 3);
  EXPECT_EQ(cmd, 2);
  EXPECT_EQ(err, 5);
  EXPECT_GE(seconds, 1500000000u);
  EXPECT_LE(seconds, 1500000002u);
  EXPECT_EQ(local, 1500000000u);
  EXPECT_EQ(std::string(pn, 5), std::string("AB\x01"
                                            "C\0",
                                            5));
  EXPECT_EQ(version_text, "V9.1");
  std::vector<std::string> expected = {
      "init_uart " + std::to_string(fd),
      "check_mcu_mode 3",
      "check_mcu_error 1 err=5",
      "get_utc 0 " + std::to_string(seconds),
      "utc2mcutime 1499971200 1500000000",
      "sent_cmd 185 4 80d0c859 1 2",
      "get_pn 0",
      "check_version 0",
      "FwInfo2Str V9.1",
      "upgrade_mcu_if_not_match MCU 2.0 0",
      "disable_mcu_heartbeat 0",
      "close_uart",
  };
  EXPECT_EQ(lines, expected);
  sim::set_wallclock(sim::host_realtime_us(), 0, "test");
}

TEST(McuLink, ClockRunsOnFromWhenItWasSet) {
  std::string error;
  ASSERT_EQ(sim::mcu_state_set({"utc=1000"}, &error), 0);
  std::string text = state_text();
  std::string anchor = "utc_anchor_us=";
  size_t at = text.find(anchor);
  ASSERT_NE(at, std::string::npos);
  int64_t set_at = std::stoll(text.substr(at + anchor.size()));
  text.replace(at, text.find('\n', at) - at, anchor + std::to_string(set_at - 90500000));
  std::ofstream(sim::file(sim::kMcuState), std::ios::trunc) << text;
  uint32_t seconds = 0;
  EXPECT_EQ(get_utc(&seconds), 0);
  // 90.5 s of host time is that many times more board time, and the test itself takes a
  // little host time, which the time scale magnifies.
  uint32_t expected = 1000u + 90500u * sim::timescale() / 1000u;
  EXPECT_GE(seconds, expected);
  EXPECT_LE(seconds, expected + 50u * sim::timescale() / 1000u);
}

TEST(McuLink, EveryCallFailsWhileTheLinkIsDown) {
  std::string error;
  ASSERT_EQ(sim::mcu_state_set({"link=down"}, &error), 0);
  int err = 0;
  uint32_t seconds = 7;
  std::vector<std::string> lines = recorded([&] {
    EXPECT_LT(init_uart(), 0);
    EXPECT_LT(check_mcu_error(&err), 1);
    EXPECT_LT(get_utc(&seconds), 0);
  });
  EXPECT_EQ(seconds, 7u);
  EXPECT_EQ(lines,
            (std::vector<std::string>{"init_uart -1", "check_mcu_error -1 err=0", "get_utc -1"}));
  ASSERT_EQ(sim::mcu_state_set({"link=up"}, &error), 0);
}

}  // namespace
