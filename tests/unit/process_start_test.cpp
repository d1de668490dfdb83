#include <gtest/gtest.h>

#include "process/process_management.h"
#include "process/upgrader_policy.h"
#include "tests/unit/captured_log.h"
#include "update/boot_flags.h"

namespace {

TEST(UpgraderDecision, RelaunchesOnceThenOnlyWithinFourSeconds) {
  struct Row {
    int launch_count, last_launch, now;
    UpgraderDecision expected;
  } rows[] = {
      {0, 0, 50, UPGRADER_FIRST_LAUNCH},
      {1, 40, 50, UPGRADER_RELAUNCH},
      {1, 10, 500, UPGRADER_RELAUNCH},
      {2, 40, 43, UPGRADER_RELAUNCH},
      {2, 40, 44, UPGRADER_RELAUNCH},
      {2, 40, 45, UPGRADER_GIVE_UP},
      {2, 40, 50, UPGRADER_GIVE_UP},
      {7, 40, 42, UPGRADER_RELAUNCH},
      {7, 40, 45, UPGRADER_GIVE_UP},
      {2, 0, 500, UPGRADER_RELAUNCH},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.launch_count << " " << row.last_launch << " " << row.now);
    EXPECT_EQ(upgrader_decision(row.launch_count, row.last_launch, row.now), row.expected);
  }
}

TEST(StartProc, PicksTheCommandByNameAndUpdatePhase) {
  struct Row {
    const char* name;
    int flag;
    int expected;
    const char* first_line;  // "" when nothing is logged
  } rows[] = {
      {"CoreCtl", 2, 1, "tq_system: CoreCtl Updating 1&"},
      {"CoreCtl", 3, 1, "tq_system: CoreCtl Updating 2&"},
      {"CoreCtl", 4, 1, "tq_system: : own"},
      {"/usr/bin/CoreCtl2", 2, 1, "tq_system: CoreCtl Updating 1&"},
      {"quom_client", 3, 0, "System is updating, phase-2 not start quom_client"},
      {"quom_client", 4, 0, "System is updating, phase-2 not start quom_client"},
      {"quom_client", 5, 1, "tq_system: : own"},
      {"quom_client_helper_nomqtt.sh", 4, 0, "System is updating, phase-2 not start quom_client"},
      {"netmgrd", 3, 1, "tq_system: : own"},
      {"Upgrader", 2, 0, ""},  // not allowed to run: silently skipped
  };
  RobotProcessManagement list;
  int saved_flag = g_upgrader_flag.load();
  g_upgrader_normal_exit = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.name << " with flag " << row.flag);
    g_upgrader_flag = row.flag;
    ProcessInfo rec;
    rec.Name = row.name;
    rec.Cmd = ": own";
    int result = -1;
    auto log = captured_log([&] { result = list.StartProc(rec); });
    EXPECT_EQ(result, row.expected);
    EXPECT_EQ(log.empty() ? "" : log.front(), std::string(row.first_line));
    EXPECT_EQ(rec.pid, -1);
  }
  g_upgrader_flag = saved_flag;
}

}  // namespace
