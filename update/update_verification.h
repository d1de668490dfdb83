// After the reboot that follows an installed update phase, the supervisor checks the offline
// partition and tells the updater how the installation went.
#pragma once
#include "platform/bootflag.h"

// `flag` is the update-progress flag read at start-up.
void verify_installed_update(_BL_UpdateProgressFlag flag);
