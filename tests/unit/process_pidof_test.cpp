#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "process/process_management.h"
#include "tests/unit/captured_log.h"

namespace {

pid_t start(const std::string& path, const std::string& name) {
  pid_t child = fork();
  if (child == 0) {
    execl(path.c_str(), name.c_str(), "60", static_cast<char*>(nullptr));
    _exit(127);
  }
  return child;
}

// pidof sees a child only once it has exec'd.
int pid_of_when(RobotProcessManagement& list, const std::string& name, int expected) {
  int id = list.PidOf(name.c_str());
  for (int i = 0; i < 200 && id != expected; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    id = list.PidOf(name.c_str());
  }
  return id;
}

TEST(PidOf, FindsNoneOneOrSeveral) {
  // A copy of sleep under a name no other process has.
  char dir[] = "/tmp/custodo-pidof-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string name = "cstsl" + std::to_string(getpid()), path = std::string(dir) + "/" + name;
  ASSERT_EQ(std::system(("cp /bin/sleep " + path).c_str()), 0);
  RobotProcessManagement list;
  ProcessInfo rec;
  rec.Name = name;
  rec.pid = 1234;

  EXPECT_EQ(list.PidOf(name.c_str()), -1);
  captured_log([&] { EXPECT_EQ(list.ReCheck(rec), 0); });
  EXPECT_EQ(rec.pid, 1234);

  pid_t first = start(path, name);
  EXPECT_EQ(pid_of_when(list, name, first), first);
  auto log = captured_log([&] { EXPECT_EQ(list.ReCheck(rec), 1); });
  EXPECT_EQ(rec.pid, first);
  EXPECT_EQ(log, std::vector<std::string>{"pid of " + name + " :" + std::to_string(first)});

  // Two of one name are a fault: ReCheck kills both and reports none.
  pid_t second = start(path, name);
  EXPECT_EQ(pid_of_when(list, name, -2), -2);
  captured_log([&] { EXPECT_EQ(list.ReCheck(rec), 0); });
  EXPECT_EQ(rec.pid, first);
  for (pid_t child : {first, second}) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  }
  unlink(path.c_str());
  rmdir(dir);
}

}  // namespace
