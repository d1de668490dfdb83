#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "process/process_management.h"
#include "tests/unit/captured_log.h"

namespace {

// A copy of sleep under a name no other process has.
struct Sleeper {
  std::string dir, name, path;
  Sleeper() {
    char templ[] = "/tmp/custodo-pidof-XXXXXX";
    dir = mkdtemp(templ);
    name = "cstsl" + std::to_string(getpid());
    path = dir + "/" + name;
    EXPECT_EQ(std::system(("cp /bin/sleep " + path).c_str()), 0);
  }
  ~Sleeper() {
    unlink(path.c_str());
    rmdir(dir.c_str());
  }
  pid_t start() const {
    pid_t child = fork();
    if (child == 0) {
      execl(path.c_str(), name.c_str(), "60", static_cast<char*>(nullptr));
      _exit(127);
    }
    return child;
  }
};

// pidof sees a child only once it has exec'd, so wait for the expected answer.
int pid_of_when(RobotProcessManagement& list, const std::string& name, int expected) {
  int id = list.PidOf(name.c_str());
  for (int i = 0; i < 200 && id != expected; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    id = list.PidOf(name.c_str());
  }
  return id;
}

TEST(PidOf, FindsNoneOneOrSeveral) {
  Sleeper sleeper;
  RobotProcessManagement list;
  ProcessInfo rec;
  rec.Name = sleeper.name;
  rec.pid = 1234;

  EXPECT_EQ(list.PidOf(sleeper.name.c_str()), -1);
  captured_log([&] { EXPECT_EQ(list.ReCheck(rec), 0); });
  EXPECT_EQ(rec.pid, 1234);

  pid_t first = sleeper.start();
  EXPECT_EQ(pid_of_when(list, sleeper.name, first), first);
  auto log = captured_log([&] { EXPECT_EQ(list.ReCheck(rec), 1); });
  EXPECT_EQ(rec.pid, first);
  EXPECT_EQ(log, std::vector<std::string>{"pid of " + sleeper.name + " :" + std::to_string(first)});

  // Two of one name are a fault: ReCheck kills both and reports none.
  pid_t second = sleeper.start();
  EXPECT_EQ(pid_of_when(list, sleeper.name, -2), -2);
  captured_log([&] { EXPECT_EQ(list.ReCheck(rec), 0); });
  EXPECT_EQ(rec.pid, first);
  for (pid_t child : {first, second}) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  }
}

}  // namespace
