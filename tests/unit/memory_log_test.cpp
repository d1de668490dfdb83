#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/board_paths.h"
#include "process/memory_log.h"
#include "tests/unit/helpers.h"

namespace {

// read_proc takes a process id as text; one that climbs out of /proc reaches a crafted file.
std::string crafted_status(const char* text) {
  const std::string dir = board_root() + "/status";
  mkdir(dir.c_str(), 0755);
  write_text(dir + "/status", text);
  return ".." + dir;
}

TEST(MemoryLog, OneBlockPerStatusFile) {
  const std::pair<const char*, const char*> rows[] = {
      {"Name:\tCoreCtl\nUmask:\t0022\nPid:\t42\nVmPeak:\t  9 kB\nVmRSS:  1234 kB\n",
       "PID: 42\nName: CoreCtl\nMemory: 1234\n\n"},
      {"Name:\tkthreadd\nPid:\t2\nThreads:\t1\n", "PID: 2\nName: kthreadd\nNo Memory Info\n\n"},
      // A key without a value takes the previous line's value.
      {"Name:\tsh\nPid:\nVmRSS:\n", "PID: sh\nName: sh\nMemory: sh\n\n"},
  };
  for (const auto& [status, block] : rows) {
    proc_info_st info;
    read_proc(&info, crafted_status(status).c_str());
    EXPECT_EQ(memory_block(info), block);
  }
  // A process that ended before it was read.
  proc_info_st gone;
  EXPECT_EQ(captured_log([&] { read_proc(&gone, "999999999"); }),
            std::vector<std::string>{"read /proc/999999999/status file fail!"});
  EXPECT_EQ(memory_block(gone), "No Memory Info\n\n");
}

}  // namespace
