// A diagnostic snapshot of every process on the board: pid, name and resident memory of each,
// written to "./MemoryLog.txt" in the working directory.
#pragma once
#include <string>

struct proc_info_st {
  std::string pid;
  std::string name;
  std::string memory;  // VmRSS without its unit (kB)
};

// Fills `info` from /proc/<pid>/status; leaves it unchanged when the file cannot be read.
void read_proc(proc_info_st* info, const char* pid);

// The record's block of the snapshot: its lines and an empty line.
std::string memory_block(const proc_info_st& info);

// Rewrites "./MemoryLog.txt" with one block per process, in /proc order.
void proceed_log_recording();
