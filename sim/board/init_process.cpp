// The board's init, PID 1 of the board's namespaces. Like the robot's init system it starts
// the supervisor, restarts it whenever it exits, reaps every orphan at once, and carries out
// the power-off or reboot that the stub `shutdown` and `reboot` ask for with SIGUSR1.
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "sim/board/board_events.h"
#include "sim/board/boot.h"
#include "sim/board/capabilities.h"
#include "sim/board/commands.h"
#include "sim/board/control.h"
#include "sim/common/sim_files.h"
#include "sim/common/wallclock.h"

namespace {

constexpr int kConsoleFd = 3;
constexpr size_t kRespawnLimit = 10;     // exits within the window that stop respawning
constexpr uint64_t kRespawnWindowMs = 5000;
constexpr int kShutdownWaitMs = 5000;    // for the supervisor to finish after its request
constexpr int kStopWaitMs = 60000;       // for the supervisor to stop its daemons on Ctrl-C

std::vector<std::string> command;  // the supervisor and its arguments
pid_t supervisor = -1;
std::deque<uint64_t> exit_times;   // board time of recent supervisor exits
bool respawn_stopped = false;
sigset_t waited_signals;

void ignore_signal(int) {}

void prepare_namespaces(const std::string& root) {
  prctl(PR_SET_NAME, "custodo-board");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
    board_event("cannot mount the board's /proc: " + std::string(std::strerror(errno)));
  // Relative paths of the board's programs land in the board root.
  if (chdir(root.c_str()) != 0) board_event("cannot enter the board root " + root);
}

void setup_signals() {
  sigemptyset(&waited_signals);
  for (int sig : {SIGCHLD, SIGUSR1, SIGTERM, SIGINT, SIGHUP}) {
    // PID 1 never gets a signal whose action is the default; these are taken by sigtimedwait.
    struct sigaction action{};
    action.sa_handler = ignore_signal;
    sigaction(sig, &action, nullptr);
    sigaddset(&waited_signals, sig);
  }
  sigprocmask(SIG_SETMASK, &waited_signals, nullptr);
}

void start_supervisor() {
  std::vector<char*> argv;
  for (std::string& word : command) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(kConsoleFd, STDOUT_FILENO);
    dup2(kConsoleFd, STDERR_FILENO);
    close(kConsoleFd);
    execv(argv[0], argv.data());
    std::perror(("custodo-board: cannot start " + command[0]).c_str());
    _exit(127);
  }
  supervisor = pid;
  board_event("start supervisor pid " + std::to_string(pid));
}

void supervisor_exited(int status) {
  std::string how = WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                      : "killed by signal " + std::to_string(WTERMSIG(status));
  board_event("supervisor pid " + std::to_string(supervisor) + " " + how);
  supervisor = -1;
  uint64_t now = sim::board_clock_ms();
  exit_times.push_back(now);
  while (now - exit_times.front() > kRespawnWindowMs) exit_times.pop_front();
  if (exit_times.size() > kRespawnLimit) {
    respawn_stopped = true;
    board_event("respawn limit: more than " + std::to_string(kRespawnLimit) +
                " exits within 5 s, not restarting");
  }
}

void reap() {
  int status = 0;
  pid_t pid;
  while ((pid = waitpid(-1, &status, WNOHANG)) > 0)
    if (pid == supervisor) supervisor_exited(status);
}

// The signal that came, or 0 after the time-out.
int wait_signal(int timeout_ms) {
  timespec timeout{timeout_ms / 1000, (timeout_ms % 1000) * 1000000L};
  siginfo_t info;
  int sig = sigtimedwait(&waited_signals, &info, &timeout);
  return sig > 0 ? sig : 0;
}

// Waits up to `ms` for the supervisor to exit, reaping; false when it still runs. A stop
// signal cuts the wait short.
bool wait_supervisor_exit(int ms) {
  uint64_t deadline = sim::host_monotonic_us() / 1000 + static_cast<uint64_t>(ms);
  for (;;) {
    reap();
    int64_t left = static_cast<int64_t>(deadline) - static_cast<int64_t>(sim::host_monotonic_us() / 1000);
    if (supervisor < 0) return true;
    if (left <= 0) return false;
    int sig = wait_signal(static_cast<int>(std::min<int64_t>(left, 100)));
    if (sig == SIGINT || sig == SIGTERM) return false;
  }
}

std::string take_request() {
  std::string path = sim::file(sim::kRequest);
  FILE* file = std::fopen(path.c_str(), "r");
  if (file == nullptr) return "";
  char word[32] = {0};
  int words = std::fscanf(file, "%31s", word);
  std::fclose(file);
  unlink(path.c_str());
  return words == 1 ? word : "?";
}

// Power-off or reboot: the supervisor gets a moment to finish, as after a real `shutdown`,
// then the board goes down with every process in it.
[[noreturn]] void go_down(bool reboot) {
  board_event(reboot ? "reboot requested" : "power-off requested");
  if (!wait_supervisor_exit(kShutdownWaitMs))
    board_event("supervisor pid " + std::to_string(supervisor) + " still running after 5 s");
  std::string answer;
  control_request("halt", &answer);
  _exit(reboot ? kInitReboot : kInitPowerOff);
}

// Ctrl-C or SIGTERM on the board: the supervisor gets the same signal, as from a console, and
// stops its daemons; then the board goes down. A second signal does not wait any longer.
[[noreturn]] void stop_board(int sig) {
  if (supervisor > 0) {
    board_event("signal " + std::to_string(sig) + " to supervisor pid " + std::to_string(supervisor));
    kill(supervisor, sig);
    if (!wait_supervisor_exit(kStopWaitMs))
      board_event("supervisor pid " + std::to_string(supervisor) + " did not stop");
  }
  std::string answer;
  control_request("halt", &answer);
  _exit(kInitStopped);
}

bool held() {
  struct stat st{};
  return stat(sim::file(kHoldFile).c_str(), &st) == 0;
}

}  // namespace

int cmd_board_init(const Args& args) {
  if (args.size() < 2 || getpid() != 1) return fail("the board's init is started by `run`");
  use_root(args[0]);
  command.assign(args.begin() + 1, args.end());
  prepare_namespaces(args[0]);
  if (!drop_host_capabilities()) board_event("cannot drop the clock and reboot capabilities");
  setup_signals();
  start_supervisor();
  bool holding = false;
  for (;;) {
    // The request first: the tools ask before the supervisor that ran them exits.
    std::string request = take_request();
    if (request == "poweroff" || request == "reboot") go_down(request == "reboot");
    if (!request.empty()) board_event("unknown request '" + request + "' ignored");
    reap();
    if (supervisor < 0 && !respawn_stopped) {
      if (held()) {
        if (!holding) board_event("restart held");
        holding = true;
        if (int sig = wait_signal(20); sig == SIGINT || sig == SIGTERM) stop_board(sig);
        continue;
      }
      if (holding) board_event("restart released");
      holding = false;
      board_event("restart");
      start_supervisor();
    }
    if (int sig = wait_signal(1000); sig == SIGINT || sig == SIGTERM) stop_board(sig);
  }
}
