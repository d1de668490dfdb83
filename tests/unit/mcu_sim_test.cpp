#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/mculink.h"
#include "sim/common/sim_files.h"
#include "sim/mculink/mcu_state.h"
#include "tests/unit/text_file.h"

namespace {

TEST(McuState, AssignmentsAreCheckedBeforeAnyIsApplied) {
  std::string error;
  ASSERT_EQ(sim::mcu_state_reset(&error), 0) << error;
  const std::pair<std::vector<std::string>, bool> rows[] = {
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
  for (const auto& [assignments, valid] : rows) {
    std::string before = read_text(sim::file(sim::kMcuState));
    error.clear();
    EXPECT_EQ(sim::mcu_state_set(assignments, &error), valid ? 0 : -1) << assignments[0];
    EXPECT_EQ(error.empty(), valid) << error;
    if (!valid) {
      EXPECT_EQ(read_text(sim::file(sim::kMcuState)), before) << assignments[0];
    }
  }
  sim::McuState state = sim::mcu_state_load();
  EXPECT_EQ(state["link"], "down");
  EXPECT_EQ(sim::mcu_state_number(state, "error"), -3);
  EXPECT_EQ(sim::mcu_state_text(state, "pn"), "AB\x01" "C\\");
  ASSERT_EQ(sim::mcu_state_set({"link=up"}, &error), 0);
}

TEST(McuLink, ClockRunsOnFromWhenItWasSet) {
  std::string error;
  ASSERT_EQ(sim::mcu_state_set({"utc=1000"}, &error), 0);
  std::string text = read_text(sim::file(sim::kMcuState));
  const std::string anchor = "utc_anchor_us=";
  size_t at = text.find(anchor);
  ASSERT_NE(at, std::string::npos);
  int64_t set_at = std::stoll(text.substr(at + anchor.size()));
  text.replace(at, text.find('\n', at) - at, anchor + std::to_string(set_at - 90500000));
  write_text(sim::file(sim::kMcuState), text.c_str());
  uint32_t seconds = 0;
  EXPECT_EQ(get_utc(&seconds), 0);
  // 90.5 s of host time is that many times more board time, and the test itself takes a
  // little host time, which the time scale magnifies.
  uint32_t expected = 1000u + 90500u * sim::timescale() / 1000u;
  EXPECT_GE(seconds, expected);
  EXPECT_LE(seconds, expected + 50u * sim::timescale() / 1000u);
}

}  // namespace
