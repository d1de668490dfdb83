#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "process/process_management.h"
#include "tests/common/boot_environment.h"
#include "tests/unit/captured_log.h"
#include "update/boot_flags.h"
#include "update/update_stage_handlers.h"

namespace {

// A board whose boot loader holds `flag`, or one whose environment cannot be read.
void boot_loader_at(int flag, bool broken = false) {
  ASSERT_TRUE(make_environment(true, {{"partition_flag_1", "1"},
                                      {"partition_flag_2", "1"},
                                      {"update_progress_flag", std::to_string(flag)}}));
  if (broken) break_environment();
  g_upgrader_flag = flag;
}

int boot_loader_flag() {
  _BL_UpdateProgressFlag flag = UpdateProgress_Unknown;
  EXPECT_EQ(BlGetUpdateProgressFlag(&flag), 0);
  return flag;
}

}  // namespace

TEST(UpdateStages, DoneMovesTheFlagAndStopsRelaunches) {
  struct Row {
    int stage, result, before, after;
    std::vector<std::string> log;
  };
  const Row rows[] = {
      {1, 1, 1, 0,
       {"UpdatePhase (Phase 0) is Succeeded", "Set UpdateProgress flag = UpdateProgress_Phase_NS",
        "Set return = 0", "Set global update flag =UpdateProgress_Phase_NS"}},
      {2, 1, 2, 4,
       {"UpdatePhase (Phase 1) is Succeeded", "Set UpdateProgress flag = UpdateProgress_Phase_1_Post",
        "Set return = 0", "Set global update flag =UpdateProgress_Phase_1_Post"}},
      {3, 1, 3, 5,
       {"UpdatePhase (Phase 2) is Succeeded", "Set UpdateProgress flag = UpdateProgress_Phase_2_Post",
        "Set return = 0", "Set global update flag =UpdateProgress_Phase_2_Post"}},
      {2, 7, 2, 0,
       {"UpdatePhase (Phase 1) is Unknown Result", "Clear update progress flag", "Set return = 0",
        "Set global update flag =UpdateProgress_Phase_NS"}},
      {3, 2, 3, 0,
       {"UpdatePhase (Phase 2) is Failed", "Clear update progress flag", "Set return = 0",
        "Set global update flag =UpdateProgress_Phase_NS"}},
      {9, 1, 3, 3, {"UpdatePhase (Unknown Phase Id) is Succeeded", "Unknown update phase!"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.stage) + "/" + std::to_string(row.result));
    boot_loader_at(row.before);
    g_upgrader_normal_exit = 1;
    _Robot_UpdateStageComplete record{static_cast<_Robot_UpdateStageId>(row.stage),
                                      static_cast<_Robot_UpdateStageResult>(row.result)};
    int result = 0;
    auto log = captured_log([&] { result = HandleUpdateStageDone(&record); });
    EXPECT_EQ(log, row.log);
    EXPECT_EQ(result, row.stage == 9 ? -1 : 0);
    EXPECT_EQ(boot_loader_flag(), row.after);
    EXPECT_EQ(g_upgrader_flag, row.after);
    EXPECT_EQ(g_upgrader_normal_exit, 0);
  }
}

TEST(UpdateStages, StartSetsPhaseZeroAndOneOnly) {
  struct Row {
    int stage, after, permission;
    std::vector<std::string> log;
  };
  const Row rows[] = {
      {1, 1, 1,
       {"UpdatePhase (Phase 0) start", "Set UpdateProgress flag = UpdateProgress_Phase_0",
        "Set return = 0"}},
      {2, 2, 1,
       {"UpdatePhase (Phase 1) start", "Set UpdateProgress flag = UpdateProgress_Phase_1",
        "Set return = 0"}},
      {3, 3, 0, {"UpdatePhase (Phase 2) start"}},
      {0, 3, 0, {"UpdatePhase (Unknown Phase Id) start"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.stage);
    boot_loader_at(3);
    g_upgrader_normal_exit = 0;
    auto log = captured_log([&] { HandleUpdateStageStart(static_cast<_Robot_UpdateStageId>(row.stage)); });
    EXPECT_EQ(log, row.log);
    EXPECT_EQ(boot_loader_flag(), row.after);
    EXPECT_EQ(g_upgrader_flag, row.after);
    EXPECT_EQ(g_upgrader_normal_exit, row.permission);
  }
}

TEST(UpdateStages, CopyFollowsTheStageEvenWhenTheBootLoaderFails) {
  boot_loader_at(2, true);
  _Robot_UpdateStageComplete record{UpdateStage_Phase_1, UpdateStage_Succeeded};
  int result = 0;
  auto log = captured_log([&] { result = HandleUpdateStageDone(&record); });
  EXPECT_LT(result, 0);
  EXPECT_EQ(log.at(2), "Set return = " + std::to_string(result));
  EXPECT_EQ(g_upgrader_flag, UpdateProgress_Phase_1_Post);
}
