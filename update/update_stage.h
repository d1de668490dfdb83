// The stages of a firmware update as other daemons report them, and the handlers that move the
// boot loader's update-progress flag along.
#pragma once
#include <cstdint>

enum _Robot_UpdateStageId : int32_t {
  UpdateStage_Phase_0 = 1,
  UpdateStage_Phase_1 = 2,
  UpdateStage_Phase_2 = 3,
};

enum _Robot_UpdateStageResult : int32_t {
  UpdateStage_Succeeded = 1,
  UpdateStage_Failed = 2,
};

// Payload of the stage-done and install-verify messages.
struct _Robot_UpdateStageComplete {
  _Robot_UpdateStageId stage;
  _Robot_UpdateStageResult result;
};
static_assert(sizeof(_Robot_UpdateStageComplete) == 8, "two 32-bit fields");
