#include "update/update_stage_handlers.h"

#include "core/log_line.h"
#include "platform/board_time.h"
#include "status/snapshot.h"
#include "update/boot_flags.h"

namespace {

// Sets the boot loader's flag and the supervisor's copy, whatever the boot loader answered:
// the two may differ until the flag is read again at the next start.
int set_progress(_BL_UpdateProgressFlag flag) {
  int result = BlSetUpdateProgressFlag(flag);
  g_upgrader_flag = flag;
  status_update_progress(flag);
  log_line("Set return = ", result);
  return result;
}

constexpr unsigned kPauseAfterPhase0Seconds = 3;

}  // namespace

const char* _UpdateStageId2String(_Robot_UpdateStageId stage) {
  switch (stage) {
    case UpdateStage_Phase_0:
      return "Phase 0";
    case UpdateStage_Phase_1:
      return "Phase 1";
    case UpdateStage_Phase_2:
      return "Phase 2";
  }
  return "Unknown Phase Id";
}

const char* _UpdateStageResult2String(_Robot_UpdateStageResult result) {
  switch (result) {
    case UpdateStage_Succeeded:
      return "Succeeded";
    case UpdateStage_Failed:
      return "Failed";
  }
  return "Unknown Result";
}

int HandleUpdateStageStart(_Robot_UpdateStageId stage) {
  log_line("UpdatePhase (", _UpdateStageId2String(stage), ") start");
  _BL_UpdateProgressFlag flag;
  switch (stage) {
    case UpdateStage_Phase_0:
      flag = UpdateProgress_Phase_0;
      break;
    case UpdateStage_Phase_1:
      flag = UpdateProgress_Phase_1;
      break;
    default:
      // Phase 2 starts from the flag start-up left after a verified phase 1.
      return -1;
  }
  log_line("Set UpdateProgress flag = ", _UpdateProgress2String(flag));
  int result = set_progress(flag);
  g_upgrader_normal_exit = 1;
  return result;
}

int HandleUpdateStageDone(const _Robot_UpdateStageComplete* record) {
  // Once the updater has reported, it is not relaunched.
  g_upgrader_normal_exit = 0;
  _Robot_UpdateStageId stage = record->stage;
  bool succeeded = record->result == UpdateStage_Succeeded;
  log_line("UpdatePhase (", _UpdateStageId2String(stage), ") is ",
           _UpdateStageResult2String(record->result));
  _BL_UpdateProgressFlag next = UpdateProgress_Phase_NS;
  switch (stage) {
    case UpdateStage_Phase_0:
      break;
    case UpdateStage_Phase_1:
      next = UpdateProgress_Phase_1_Post;
      break;
    case UpdateStage_Phase_2:
      next = UpdateProgress_Phase_2_Post;
      break;
    default:
      log_line("Unknown update phase!");
      return -1;
  }
  if (succeeded) {
    log_line("Set UpdateProgress flag = ", _UpdateProgress2String(next));
  } else {
    log_line("Clear update progress flag");
    next = UpdateProgress_Phase_NS;
  }
  int result = set_progress(next);
  log_line("Set global update flag =",
           _UpdateProgress2String(static_cast<_BL_UpdateProgressFlag>(g_upgrader_flag.load())));
  if (stage == UpdateStage_Phase_0 && succeeded) board_sleep(kPauseAfterPhase0Seconds);
  return result;
}
