// Nothing on the board may set the host's clock or reboot the host: the board's processes run
// without CAP_SYS_TIME and CAP_SYS_BOOT, a safety net under the board-time seam.
#pragma once

// Drops both from this process's bounding, effective, permitted and inheritable sets, so that
// no program started from it gets them back. False when that failed.
bool drop_host_capabilities();
