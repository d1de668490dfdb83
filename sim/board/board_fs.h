// The board's little FUSE file system on sim/fuse/: `watchdog`, the hardware watchdog device
// that dev/watchdog links to, and `stuck`, whose reads are not answered until released, so
// that a process reading it cannot end, not even on SIGKILL.
#pragma once
#include <string>

// Mounts it and serves it from a thread of its own.
bool board_fs_mount(const std::string& mountpoint, std::string* error);
void board_fs_unmount();

// Answers the reads of `stuck` waiting now with EIO; later reads wait again.
void stuck_unstick();
// Answers every read of `stuck`, now and until the next boot, with EIO: a board going down
// must be able to end all of its processes.
void stuck_release_all();
void stuck_new_boot();
int stuck_waiting();
