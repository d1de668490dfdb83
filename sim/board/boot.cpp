#include "sim/board/boot.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sim/board/command_line.h"
#include "sim/common/sim_files.h"

extern char** environ;

namespace {

constexpr int kConsoleFd = 3;  // where the init finds the console
constexpr int kReportFd = 4;
constexpr int kNoNamespaces = 12;

std::atomic<int> boot_number{0};
std::atomic<pid_t> init_pid{-1};

std::vector<std::string> board_environment(const std::string& root) {
  const char* path = std::getenv("PATH");
  std::vector<std::string> env = {
      "PATH=" + root + "/bin:" + (path ? path : "/usr/sbin:/usr/bin:/sbin:/bin"),
      "CUSTODO_BOARD_ROOT=" + root,
      "ALSA_CONFIG_PATH=" + root + "/etc/asound.conf",
  };
  for (char** entry = environ; *entry != nullptr; ++entry) {
    std::string text = *entry;
    std::string name = text.substr(0, text.find('='));
    if (name != "PATH" && name != "CUSTODO_BOARD_ROOT" && name != "ALSA_CONFIG_PATH")
      env.push_back(text);
  }
  return env;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  for (std::string& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

// The process between us and the board: it creates the namespaces, forks the init into them
// and relays the init's exit status. Only system calls from here on: we were forked from a
// process with threads.
[[noreturn]] void relay(pid_t outer, int console, int report, const char* exe, char** argv,
                        char** envp) {
  // Should custodo-board be killed outright, the board goes with it.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != outer) _exit(kNoNamespaces);
  setsid();  // the terminal's Ctrl-C is for custodo-board, not for the board's processes
  int console_copy = fcntl(console, F_DUPFD_CLOEXEC, 100);
  int report_copy = fcntl(report, F_DUPFD_CLOEXEC, 101);
  dup2(console_copy, kConsoleFd);
  dup2(report_copy, kReportFd);
  close_range(kReportFd + 1, ~0u, 0);
  if (unshare(CLONE_NEWPID | CLONE_NEWNS | CLONE_NEWIPC) != 0) {
    std::perror("custodo-board: cannot create the board's namespaces");
    _exit(kNoNamespaces);
  }
  pid_t init = fork();
  if (init == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(kReportFd);
    int null = open("/dev/null", O_RDONLY);
    dup2(null, STDIN_FILENO);
    if (null > kReportFd) close(null);
    execve(exe, argv, envp);
    std::perror("custodo-board: cannot start the board's init");
    _exit(127);
  }
  ssize_t ignored = write(kReportFd, &init, sizeof init);
  (void)ignored;
  close(kReportFd);
  int status = 0;
  while (init > 0 && waitpid(init, &status, 0) < 0 && errno == EINTR) {
  }
  if (init < 0) _exit(kNoNamespaces);
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

}  // namespace

pid_t boot_start(const BootPlan& plan, int number, pid_t* init) {
  std::string exe = self_exe();
  std::vector<std::string> args = {"custodo-board", "__init", plan.root, plan.supervisor};
  args.insert(args.end(), plan.supervisor_args.begin(), plan.supervisor_args.end());
  std::vector<std::string> env = board_environment(plan.root);
  std::vector<char*> argv = pointers(args);
  std::vector<char*> envp = pointers(env);

  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return -1;
  pid_t outer = getpid();
  pid_t relay_pid = fork();
  if (relay_pid == 0) relay(outer, plan.console, report[1], exe.c_str(), argv.data(), envp.data());
  close(report[1]);
  *init = -1;
  if (relay_pid > 0 && read(report[0], init, sizeof *init) != sizeof *init) *init = -1;
  close(report[0]);
  if (relay_pid < 0) return -1;
  boot_number = number;
  init_pid = *init;
  if (*init > 0) write_file(sim::file(sim::kInitPid), std::to_string(*init) + "\n");
  return relay_pid;
}

int current_boot() { return boot_number; }

pid_t current_init() { return init_pid; }

void boot_ended() {
  init_pid = -1;
  unlink(sim::file(sim::kInitPid).c_str());
}
