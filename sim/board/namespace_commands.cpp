// Commands that act inside a running board: they join the namespaces of the board's init, so
// that they see the board's processes, /proc and System V IPC exactly as its programs do.
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sim/board/capabilities.h"
#include "sim/board/commands.h"
#include "sim/common/sim_files.h"

extern char** environ;

namespace {

struct SignalName {
  const char* name;
  int number;
};
const SignalName kSignals[] = {{"HUP", SIGHUP},   {"INT", SIGINT},   {"QUIT", SIGQUIT},
                               {"KILL", SIGKILL}, {"USR1", SIGUSR1}, {"USR2", SIGUSR2},
                               {"TERM", SIGTERM}, {"STOP", SIGSTOP}, {"CONT", SIGCONT},
                               {"ALRM", SIGALRM}, {"PIPE", SIGPIPE}, {"CHLD", SIGCHLD}};

bool parse_signal(std::string text, int* number) {
  if (text.rfind("SIG", 0) == 0) text = text.substr(3);
  for (const SignalName& s : kSignals)
    if (text == s.name) return (*number = s.number), true;
  unsigned long long value = 0;
  if (!parse_number(text, 64, &value) || value == 0) return false;
  *number = static_cast<int>(value);
  return true;
}

pid_t board_init() {
  pid_t pid = std::atoi(sim::read_file(sim::file(sim::kInitPid)).c_str());
  return pid > 1 ? pid : -1;
}

// Joins the init's IPC, PID and mount namespaces (the PID namespace applies to our children)
// and gives up what the board's processes may not have.
bool enter_board(pid_t init, std::string* error) {
  const char* kinds[] = {"ipc", "pid", "mnt"};
  int fds[3];
  for (int i = 0; i < 3; ++i) {
    std::string path = "/proc/" + std::to_string(init) + "/ns/" + kinds[i];
    fds[i] = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fds[i] < 0) {
      *error = "cannot reach the board's namespaces (" + path + "): " + std::strerror(errno);
      return false;
    }
  }
  bool joined = true;
  for (int i = 0; i < 3; ++i) {
    if (joined && setns(fds[i], 0) != 0) {
      *error = std::string("cannot join the board's ") + kinds[i] + " namespace: " + std::strerror(errno);
      joined = false;
    }
    close(fds[i]);
  }
  // What runs inside the board is held to the board's rules, like its init's children.
  if (joined && !drop_host_capabilities()) {
    *error = "cannot drop the clock and reboot capabilities";
    joined = false;
  }
  return joined;
}

// Ends the command with the status of its child. Straight to _exit: having joined the board's
// PID namespace, this process must not start the exit-time helpers (the leak checker's, in a
// sanitizer build), which would live in the board and never find their parent.
[[noreturn]] void exit_as(pid_t child) {
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (child < 0) std::fprintf(stderr, "custodo-board: cannot fork: %s\n", std::strerror(errno));
  std::fflush(stdout);
  _exit(child < 0 ? 1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

std::vector<std::string> split_nul(const std::string& text) {
  std::vector<std::string> words;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = std::min(text.find('\0', at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

std::string base_name(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A process is NAME as pidof -x sees it: by the program it runs, or by the script a shell
// runs for it. Zombies have no command line and are left alone.
bool is_named(const std::string& pid, const std::string& name) {
  std::string cmdline = sim::read_file("/proc/" + pid + "/cmdline");
  std::vector<std::string> words;
  for (const std::string& word : split_nul(cmdline)) words.push_back(base_name(word));
  if (words.empty()) return false;
  if (words[0] == name) return true;
  bool shell = words[0] == "sh" || words[0] == "bash" || words[0] == "dash";
  return shell && words.size() > 1 && words[1] == name;
}

int signal_by_name(const std::string& name, int signo) {
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return fail("cannot read the board's /proc");
  int signalled = 0;
  while (dirent* entry = readdir(proc)) {
    std::string pid = entry->d_name;
    if (pid.find_first_not_of("0123456789") != std::string::npos || pid == "1") continue;
    if (std::atoi(pid.c_str()) == getpid() || !is_named(pid, name)) continue;
    if (kill(std::atoi(pid.c_str()), signo) == 0) {
      std::printf("signal %d sent to %s pid %s\n", signo, name.c_str(), pid.c_str());
      ++signalled;
    }
  }
  closedir(proc);
  if (signalled == 0) return fail("no process named " + name + " on the board");
  return 0;
}

}  // namespace

int cmd_kill(const Args& args) {
  int signo = SIGTERM;
  if (args.size() < 2 || args.size() > 3 || (args.size() == 3 && !parse_signal(args[2], &signo)))
    return fail("usage: custodo-board kill DIR NAME [SIGNAL]");
  std::string root, error;
  if (need_running_board(args[0], &root) != 0) return 1;
  if (!enter_board(board_init(), &error)) return fail(error);
  std::fflush(stdout);
  pid_t child = fork();
  if (child == 0) {
    int status = signal_by_name(args[1], signo);
    std::fflush(stdout);
    _exit(status);
  }
  exit_as(child);
}

int cmd_exec(const Args& args) {
  if (args.size() < 3 || args[1] != "--") return fail("usage: custodo-board exec DIR -- CMD...");
  std::string root, error;
  if (need_running_board(args[0], &root) != 0) return 1;
  pid_t init = board_init();
  // The board's environment, read before our /proc becomes the board's.
  std::string environment = sim::read_file("/proc/" + std::to_string(init) + "/environ");
  char cwd[PATH_MAX];
  std::string here = getcwd(cwd, sizeof cwd) ? cwd : root;
  if (!enter_board(init, &error)) return fail(error);
  if (chdir(here.c_str()) != 0 && chdir(root.c_str()) != 0) return fail("cannot enter " + root);

  std::vector<std::string> words(args.begin() + 2, args.end());
  std::vector<char*> argv, envp;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::vector<std::string> variables = split_nul(environment);
  for (std::string& variable : variables) envp.push_back(variable.data());
  envp.push_back(nullptr);
  pid_t child = fork();
  if (child == 0) {
    environ = envp.data();  // PATH lookup with the board's PATH
    execvp(argv[0], argv.data());
    std::fprintf(stderr, "custodo-board: cannot run %s on the board: %s\n", argv[0],
                 std::strerror(errno));
    _exit(127);
  }
  exit_as(child);
}
