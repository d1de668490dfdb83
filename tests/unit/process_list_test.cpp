#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <random>

#include "process/process_management.h"
#include "tests/unit/captured_log.h"

namespace {

std::vector<std::string> read_list(RobotProcessManagement& list, const std::string& text) {
  char path[] = "/tmp/custodo-list-XXXXXX";
  close(mkstemp(path));
  std::ofstream(path) << text;
  auto log = captured_log([&] { list.InitialConfig(path); });
  unlink(path);
  return log;
}

struct Row {
  const char* line;
  const char* name;
  const char* cmd;
  int key_proc, kill_timeout, wait_after_start;
};

TEST(ProcessList, CutsFieldsOfEachLine) {
  const Row rows[] = {
      {"CoreCtl,/usr/bin/corectl,1,3,5", "CoreCtl", "/usr/bin/corectl", 1, 3, 5},
      {"a,b,0,10,5", "a", "b", 0, 10, 5},
      // WaitAfterStart is read from no more characters than KillTimeout has.
      {"a,b,0,3,15", "a", "b", 0, 3, 1},
      {"a,b,0,20,3,4", "a", "b", 0, 20, 3},
      {"a,b,0,,5", "a", "b", 0, 0, 0},
      {"a,b,1,2", "a", "b", 1, 2, 2},
      // A missing comma repeats the last field in the ones after it.
      {"a,b", "a", "b", 0, 0, 0},
      {"n,7", "n", "7", 7, 7, 7},
      {"", "", "", 0, 0, 0},
      {" #x,c,1,2,3", " #x", "c", 1, 2, 3},
      {"p , sh -c 'x' ,  4, 12,9x", "p ", " sh -c 'x' ", 4, 12, 9},
      {"p,c,-2,+30,7\r", "p", "c", -2, 30, 7},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    RobotProcessManagement list;
    read_list(list, std::string(row.line) + "\n");
    ASSERT_EQ(list.processes.size(), 1u);
    const ProcessInfo& rec = list.processes[0];
    EXPECT_EQ(rec.Name, row.name);
    EXPECT_EQ(rec.Cmd, row.cmd);
    EXPECT_EQ(rec.KeyProc, row.key_proc);
    EXPECT_EQ(rec.KillTimeout, row.kill_timeout);
    EXPECT_EQ(rec.WaitAfterStart, row.wait_after_start);
    EXPECT_EQ(rec.pid, -1);
  }
}

TEST(ProcessList, ReadsWholeFilesAndRereads) {
  RobotProcessManagement list;
  read_list(list, "# only\n#comments\n");
  EXPECT_TRUE(list.processes.empty());

  const std::string text =
      "#name,cmd,key,kill,wait\nCoreCtl,/usr/bin/corectl,1,3,5\n\nAppBridge,AppBridge &,1,5,2\n"
      "w,/usr/bin/netmgrd_wrapper &,0,1,0\nlast,x,0,1,0";
  auto log = read_list(list, text);
  read_list(list, text);
  ASSERT_EQ(list.processes.size(), 5u);
  EXPECT_EQ(list.processes[1].Name, "");
  EXPECT_EQ(list.processes[4].Name, "last");
  ASSERT_EQ(log.size(), 5u);
  EXPECT_EQ(log[0], "Name:CoreCtl Cmd:/usr/bin/corectl KeyProc:1 KillTimeout:3 WaitAfterStart:5");

  // A failed integrity check drops every line that mentions AppBridge or netmgrd anywhere.
  list.SetIntegrityFailed(true);
  read_list(list, text);
  ASSERT_EQ(list.processes.size(), 3u);
  EXPECT_EQ(list.processes[0].Name, "CoreCtl");
  EXPECT_EQ(list.processes[2].Name, "last");
}

TEST(ProcessList, UnreadableFileEndsTheProcessWithZero) {
  RobotProcessManagement list;
  EXPECT_EXIT(list.InitialConfig("/nonexistent/ProcessList.conf"), ::testing::ExitedWithCode(0), "");
}

TEST(ProcessList, SurvivesRandomLines) {
  std::mt19937 random(20240611);
  const std::string alphabet = ",,,,0123456789  ##-+ab\t\r";
  std::string text;
  size_t records = 0;
  for (int i = 0; i < 4000; i++) {
    std::string line(random() % 40, ' ');
    for (char& c : line) c = alphabet[random() % alphabet.size()];
    if (i % 100 == 0) line.insert(random() % (line.size() + 1), std::string(5000, '9'));
    if (line.empty() || line[0] != '#') records++;
    text += line + "\n";
  }
  RobotProcessManagement list;
  read_list(list, text);
  EXPECT_EQ(list.processes.size(), records);
  for (const ProcessInfo& rec : list.processes) EXPECT_EQ(rec.Name.find(','), std::string::npos);
}

}  // namespace
