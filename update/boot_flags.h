// The boot loader's partition and update-progress flags, and the supervisor's copy of the latter.
#pragma once
#include <atomic>

#include "platform/bootflag.h"

// The update-progress flag as the supervisor last knew it: 0 to 5, or 99 (unknown).
extern std::atomic<int> g_upgrader_flag;
// 1 while StartProc may launch Upgrader: set once an update phase may run, cleared when its
// updater has reported or was given up.
extern std::atomic<int> g_upgrader_normal_exit;

const char* _UpdateProgress2String(_BL_UpdateProgressFlag flag);

// Marks the running partition good; ends the process with 1 when that fails.
void restore_partition_flag();
// Logs the running partition's flag; ends the process with 1 when it cannot be read.
void get_partition_flag();
// The offline partition's flag, or 0 when it cannot be read.
int read_offpart_flag();
// Reads the boot loader's flag into *flag and mirrors it into g_upgrader_flag.
int read_upprog_flag(_BL_UpdateProgressFlag* flag);
