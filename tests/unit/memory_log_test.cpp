#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <tuple>

#include "platform/board_paths.h"
#include "process/memory_log.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/text_file.h"

namespace {

// read_proc takes a process id as text; one that climbs out of /proc reaches a crafted file.
std::string crafted_status(const char* text) {
  const std::string dir = board_root() + "/status";
  mkdir(dir.c_str(), 0755);
  write_text(dir + "/status", text);
  return ".." + dir;
}

TEST(MemoryLog, ReadsTheStatusFile) {
  struct Row {
    const char* status;
    proc_info_st info;
  };
  const Row rows[] = {
      {"Name:\tCoreCtl\nUmask:\t0022\nPid:\t42\nVmPeak:\t  9 kB\nVmRSS:  1234 kB\n",
       {"42", "CoreCtl", "1234"}},
      {"Name:\tkthreadd\nPid:\t2\nThreads:\t1\n", {"2", "kthreadd", ""}},
      // A key without a value takes the previous line's value.
      {"Name:\tsh\nPid:\nVmRSS:\n", {"sh", "sh", "sh"}},
  };
  auto fields = [](const proc_info_st& info) { return std::tie(info.pid, info.name, info.memory); };
  for (const Row& row : rows) {
    proc_info_st info;
    read_proc(&info, crafted_status(row.status).c_str());
    EXPECT_EQ(fields(info), fields(row.info)) << row.status;
  }
  // A process that has gone leaves the record as it was.
  proc_info_st gone{"1", "x", ""};
  EXPECT_EQ(captured_log([&] { read_proc(&gone, "999999999"); }),
            std::vector<std::string>{"read /proc/999999999/status file fail!"});
  EXPECT_EQ(gone.name, "x");
}

TEST(MemoryLog, WritesOneBlockPerProcess) {
  const std::pair<proc_info_st, const char*> rows[] = {
      {{"42", "CoreCtl", "1234"}, "PID: 42\nName: CoreCtl\nMemory: 1234\n\n"},
      {{"2", "kthreadd", ""}, "PID: 2\nName: kthreadd\nNo Memory Info\n\n"},
      {{"", "", ""}, "No Memory Info\n\n"},  // a process that ended before it was read
  };
  for (const auto& [info, block] : rows) EXPECT_EQ(memory_block(info), block);

  // Each snapshot replaces the last: this process appears once, with its memory.
  char here[PATH_MAX];
  ASSERT_NE(getcwd(here, sizeof here), nullptr);
  ASSERT_EQ(chdir(board_root().c_str()), 0);
  proceed_log_recording();
  proceed_log_recording();
  std::string log = read_text("MemoryLog.txt");
  ASSERT_EQ(chdir(here), 0);
  const std::string mine = "PID: " + std::to_string(getpid()) + "\nName: custodo-unit\nMemory: ";
  EXPECT_EQ(log.find(mine), log.rfind(mine));
  EXPECT_NE(log.find(mine), std::string::npos);
}

}  // namespace
