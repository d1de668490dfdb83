#include <gtest/gtest.h>

#include "platform/board_paths.h"
#include "process/process_management.h"
#include "tests/unit/helpers.h"

namespace {

std::vector<std::string> read_list(RobotProcessManagement& list, const std::string& text) {
  const std::string path = board_root() + "/ProcessList.conf";
  write_text(path, text.c_str());
  return captured_log([&] { list.InitialConfig(path); });
}

TEST(ProcessList, CutsFieldsAndSkipsComments) {
  const std::pair<const char*, const char*> rows[] = {
      {"CoreCtl,/usr/bin/corectl,1,3,5", "CoreCtl Cmd:/usr/bin/corectl KeyProc:1 KillTimeout:3 WaitAfterStart:5"},
      {"a,b,0,10,5", "a Cmd:b KeyProc:0 KillTimeout:10 WaitAfterStart:5"},
      // WaitAfterStart is read from no more characters than KillTimeout has.
      {"a,b,0,3,15", "a Cmd:b KeyProc:0 KillTimeout:3 WaitAfterStart:1"},
      {"a,b,0,20,3,4", "a Cmd:b KeyProc:0 KillTimeout:20 WaitAfterStart:3"},
      {"a,b,0,,5", "a Cmd:b KeyProc:0 KillTimeout:0 WaitAfterStart:0"},
      // A missing comma repeats the last field in the ones after it.
      {"a,b,1,2", "a Cmd:b KeyProc:1 KillTimeout:2 WaitAfterStart:2"},
      {"n,7", "n Cmd:7 KeyProc:7 KillTimeout:7 WaitAfterStart:7"},
      {"", " Cmd: KeyProc:0 KillTimeout:0 WaitAfterStart:0"},
      {"#x,c,1,2,3", nullptr},
      {" #x,c,1,2,3", " #x Cmd:c KeyProc:1 KillTimeout:2 WaitAfterStart:3"},
      {"p , sh -c 'x' ,  4, 12,9x", "p  Cmd: sh -c 'x'  KeyProc:4 KillTimeout:12 WaitAfterStart:9"},
      {"p,c,-2,+30,7\r", "p Cmd:c KeyProc:-2 KillTimeout:30 WaitAfterStart:7"},
  };
  std::string text;
  std::vector<std::string> expected;
  for (const auto& [line, logged] : rows) {
    text += std::string(line) + "\n";
    if (logged) expected.push_back(std::string("Name:") + logged);
  }
  RobotProcessManagement list;
  EXPECT_EQ(read_list(list, text), expected);
  ASSERT_EQ(list.processes.size(), expected.size());
  EXPECT_EQ(list.processes[0].pid, -1);
}

TEST(ProcessList, TimesOutOfRangeReadAsZero) {
  RobotProcessManagement list;
  EXPECT_EQ(read_list(list, "n,c,0,-1,5\nm,c,1,99999999999999999999,99999999999999999999\no,c,0,10,-1"),
            (std::vector<std::string>{
                "InitialConfig: KillTimeout -1 of n out of range, taken as 0",
                "Name:n Cmd:c KeyProc:0 KillTimeout:0 WaitAfterStart:5",
                "InitialConfig: KillTimeout 99999999999999999999 of m out of range, taken as 0",
                "InitialConfig: WaitAfterStart 99999999999999999999 of m out of range, taken as 0",
                "Name:m Cmd:c KeyProc:1 KillTimeout:0 WaitAfterStart:0",
                "InitialConfig: WaitAfterStart -1 of o out of range, taken as 0",
                "Name:o Cmd:c KeyProc:0 KillTimeout:10 WaitAfterStart:0"}));
}

}  // namespace
