#include <gtest/gtest.h>

#include "process/upgrader_policy.h"

namespace {

TEST(UpgraderDecision, RelaunchesOnceThenOnlyWithinFourSeconds) {
  struct Row {
    int launch_count, last_launch, now;
    UpgraderDecision expected;
  } rows[] = {
      {0, 0, 50, UPGRADER_FIRST_LAUNCH},
      {1, 10, 500, UPGRADER_RELAUNCH},
      {2, 40, 44, UPGRADER_RELAUNCH},
      {2, 40, 45, UPGRADER_GIVE_UP},
      {7, 40, 42, UPGRADER_RELAUNCH},
      {2, 0, 500, UPGRADER_RELAUNCH},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.launch_count << " " << row.last_launch << " " << row.now);
    EXPECT_EQ(upgrader_decision(row.launch_count, row.last_launch, row.now), row.expected);
  }
}

}  // namespace
