#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "process/process_management.h"
#include "tests/common/boot_environment.h"
#include "tests/unit/helpers.h"
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

// A start (result 0) or the end of a stage: the flag it leaves, in the boot loader and in the
// supervisor's copy, and whether the updater may be launched again.
TEST(UpdateStages, EachKnownStageMovesTheFlagOfItsPhase) {
  struct Row {
    int stage, result, before, after;
    bool relaunch;
    std::vector<std::string> log;
  };
  const std::string set = "Set UpdateProgress flag = UpdateProgress_Phase_", ok = "Set return = 0";
  const std::string global = "Set global update flag =UpdateProgress_Phase_";
  const std::string clear = "Clear update progress flag";
  const Row rows[] = {
      {1, 0, 3, 1, true, {"UpdatePhase (Phase 0) start", set + "0", ok}},
      {2, 0, 3, 2, true, {"UpdatePhase (Phase 1) start", set + "1", ok}},
      {3, 0, 3, 3, false, {"UpdatePhase (Phase 2) start"}},
      {0, 0, 3, 3, false, {"UpdatePhase (Unknown Phase Id) start"}},
      {1, 1, 1, 0, false, {"UpdatePhase (Phase 0) is Succeeded", set + "NS", ok, global + "NS"}},
      {2, 1, 2, 4, false, {"UpdatePhase (Phase 1) is Succeeded", set + "1_Post", ok, global + "1_Post"}},
      {3, 1, 3, 5, false, {"UpdatePhase (Phase 2) is Succeeded", set + "2_Post", ok, global + "2_Post"}},
      {2, 7, 2, 0, false, {"UpdatePhase (Phase 1) is Unknown Result", clear, ok, global + "NS"}},
      {3, 2, 3, 0, false, {"UpdatePhase (Phase 2) is Failed", clear, ok, global + "NS"}},
      {9, 1, 3, 3, false, {"UpdatePhase (Unknown Phase Id) is Succeeded", "Unknown update phase!"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.stage) + "/" + std::to_string(row.result));
    boot_loader_at(row.before);
    g_upgrader_normal_exit = row.result != 0;  // a stage's end always stops the relaunches
    _Robot_UpdateStageComplete done{static_cast<_Robot_UpdateStageId>(row.stage),
                                    static_cast<_Robot_UpdateStageResult>(row.result)};
    EXPECT_EQ(captured_log([&] {
                row.result == 0 ? HandleUpdateStageStart(done.stage) : HandleUpdateStageDone(&done);
              }),
              row.log);
    _BL_UpdateProgressFlag flag = UpdateProgress_Unknown;
    EXPECT_EQ(BlGetUpdateProgressFlag(&flag), 0);
    EXPECT_EQ(std::make_tuple(int{flag}, int{g_upgrader_flag}, g_upgrader_normal_exit != 0),
              std::make_tuple(row.after, row.after, row.relaunch));
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

}  // namespace
