#pragma once
#include "update/update_stage.h"

const char* _UpdateStageId2String(_Robot_UpdateStageId stage);
const char* _UpdateStageResult2String(_Robot_UpdateStageResult result);

// The boot loader's result, or -1 when the stage sets no flag.
int HandleUpdateStageStart(_Robot_UpdateStageId stage);
// The boot loader's result, or -1 for an unknown stage.
int HandleUpdateStageDone(const _Robot_UpdateStageComplete* record);
