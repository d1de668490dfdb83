// `custodo-board run DIR`: powers the board on and keeps it running: the watchdog device and
// the stuck file (FUSE), the counter, the console, the control socket, and one boot after
// the other until a power-off, a watchdog reset, Ctrl-C or SIGTERM.
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "platform/board_paths.h"
#include "sim/board/board_events.h"
#include "sim/board/board_fs.h"
#include "sim/board/boot.h"
#include "sim/board/commands.h"
#include "sim/board/console.h"
#include "sim/board/control.h"
#include "sim/board/counter.h"
#include "sim/board/watchdog_device.h"
#include "sim/common/sim_files.h"
#include "sim/common/wallclock.h"

namespace {

struct RunOptions {
  std::string dir;
  bool counter = true;
  bool watchdog = true;
  std::string supervisor;
  Args supervisor_args;
};

enum class Outcome { Reboot, PowerOff, WatchdogReset, Interrupted, InitFailed };

bool parse(const Args& args, RunOptions* options) {
  const option kOptions[] = {{"no-counter", no_argument, nullptr, 'c'},
                             {"no-watchdog", no_argument, nullptr, 'w'},
                             {"custodo", required_argument, nullptr, 's'},
                             {}};
  Args words;
  bool parsed = parse_options(
      args, kOptions,
      [options](int found, const std::string& value) {
        if (found == 'c') options->counter = false;
        if (found == 'w') options->watchdog = false;
        if (found == 's') options->supervisor = value;
        return true;
      },
      &words, &options->supervisor_args);
  if (!parsed || words.size() != 1) return false;
  options->dir = words[0];
  return true;
}

// The devices a board is started without are simply not there.
bool prepare_devices(const RunOptions& options, const std::string& root) {
  std::string jiffies = root + "/" + board_relative_path(BoardPath::Jiffies);
  std::string watchdog = root + "/" + board_relative_path(BoardPath::Watchdog);
  if (!options.counter) unlink(jiffies.c_str());
  unlink(watchdog.c_str());
  if (options.watchdog && symlink("../sim/fuse/watchdog", watchdog.c_str()) != 0) return false;
  mkdir(sim::file(sim::kFuseDir).c_str(), 0755);
  unlink(sim::file(sim::kRequest).c_str());
  return true;
}

void prepare_boot(int number, const std::string& root) {
  counter_boot();
  stuck_new_boot();
  // /dev/shm is memory: empty at every power-on and boot.
  remove_contents(root + "/" + board_relative_path(BoardPath::SharedMemoryDir));
  sim::WallClock clock;
  clock.anchor_wall_us = sim::host_realtime_us();
  clock.anchor_mono_us = sim::host_monotonic_us();
  sim::save_wallclock(clock);
  board_event("boot " + std::to_string(number));
}

void wait_relay(pid_t relay, int* status) {
  while (waitpid(relay, status, 0) < 0 && errno == EINTR) {
  }
}

// Ends the boot from outside: stuck reads answered so that every process can die, then the
// init killed, which takes its whole PID namespace with it.
void stop_board(pid_t relay, pid_t init) {
  stuck_release_all();
  if (init > 0) kill(init, SIGKILL);
  int status = 0;
  wait_relay(relay, &status);
}

// Ctrl-C or SIGTERM asks the board's init to stop the supervisor, which stops its daemons;
// a second one, or SIGQUIT, pulls the plug at once.
// Sleeps until a signal (the relay's end among them), a change of the watchdog, or the moment
// its time-out could run out.
Outcome watch(pid_t relay, pid_t init, int signals, int* detail) {
  pollfd fds[2] = {{signals, POLLIN, 0}, {watchdog_changes(), POLLIN, 0}};
  int stopping = 0;
  for (;;) {
    poll(fds, 2, watchdog_wait_ms());
    if (fds[1].revents & POLLIN) {
      uint64_t count = 0;
      ssize_t ignored = read(fds[1].fd, &count, sizeof count);
      (void)ignored;
    }
    if (fds[0].revents & POLLIN) {
      signalfd_siginfo info{};
      int sig = read(signals, &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
      if (sig == SIGQUIT || ((sig == SIGINT || sig == SIGTERM) && stopping != 0)) {
        *detail = sig;
        stop_board(relay, init);
        return Outcome::Interrupted;
      }
      if (sig == SIGINT || sig == SIGTERM) {
        stopping = sig;
        if (init > 0) kill(init, sig);
      }
    }
    int status = 0;
    if (waitpid(relay, &status, WNOHANG) == relay) {
      *detail = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      if (*detail == kInitReboot) return Outcome::Reboot;
      if (*detail == kInitPowerOff) return Outcome::PowerOff;
      if (*detail == kInitStopped && stopping != 0) {
        *detail = stopping;
        return Outcome::Interrupted;
      }
      return Outcome::InitFailed;
    }
    if (watchdog_expired()) {
      board_event("watchdog reset");
      stop_board(relay, init);
      return Outcome::WatchdogReset;
    }
  }
}

int run_boots(const BootPlan& plan, int signals) {
  for (int number = 1;; ++number) {
    prepare_boot(number, plan.root);
    pid_t init = -1;
    pid_t relay = boot_start(plan, number, &init);
    if (relay < 0 || init < 0) {
      if (relay > 0) stop_board(relay, init);
      board_event("end of run: the board could not boot");
      return 1;
    }
    int detail = 0;
    Outcome outcome = watch(relay, init, signals, &detail);
    boot_ended();
    switch (outcome) {
      case Outcome::Reboot:
        board_event("reboot");
        watchdog_new_boot();
        write_file(plan.root + "/" + board_relative_path(BoardPath::BootReason), "0");
        continue;
      case Outcome::PowerOff:
        board_event("power-off");
        board_event("end of run: power-off");
        return 0;
      case Outcome::WatchdogReset:
        board_event("end of run: watchdog reset");
        return 0;
      case Outcome::Interrupted:
        board_event(std::string("end of run: ") +
                    (detail == SIGINT ? "interrupted" : detail == SIGTERM ? "terminated" : "quit"));
        return 0;
      case Outcome::InitFailed:
        board_event("end of run: the board's init ended with status " + std::to_string(detail));
        return 1;
    }
  }
}

// Our own mount namespace: the FUSE mount exists only in it and in the board's, and can never
// outlive this process on the host.
bool private_mounts() {
  return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

int power_on(const RunOptions& options, const std::string& root) {
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  for (int sig : {SIGINT, SIGTERM, SIGQUIT, SIGCHLD}) sigaddset(&stop_signals, sig);
  // Blocked before any thread starts, so that only the signalfd below takes them.
  sigprocmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  int signals = signalfd(-1, &stop_signals, SFD_CLOEXEC);
  if (!private_mounts()) return fail(std::string("cannot make a mount namespace: ") + std::strerror(errno));

  std::string error;
  BootPlan plan{root, options.supervisor, options.supervisor_args, -1};
  if (!board_fs_mount(sim::file(sim::kFuseDir), &error)) return fail(error);
  bool ready = counter_start(root + "/" + board_relative_path(BoardPath::Jiffies), options.counter, &error) &&
               console_start(sim::file(sim::kConsoleLog), &error) &&
               control_start(sim::file(sim::kControlSocket), &error);
  int status = 1;
  if (ready) {
    plan.console = console_writer();
    status = run_boots(plan, signals);
  } else {
    fail(error);
  }
  control_stop();
  console_stop();
  counter_stop();
  board_fs_unmount();
  close(signals);
  return status;
}

}  // namespace

int cmd_run(const Args& args) {
  RunOptions options;
  if (!parse(args, &options))
    return fail("usage: custodo-board run DIR [--no-counter] [--no-watchdog] [--custodo PATH] "
                "[-- custodo arguments]");
  sim::timescale();  // refuses a bad value before the board powers on
  std::string root;
  if (need_root(options.dir, &root) != 0) return 1;
  if (!write_file(sim::file("sim/.writable"), "") ||
      unlink(sim::file("sim/.writable").c_str()) != 0)
    return fail(options.dir + " is not writable");
  int lock = open(sim::file(sim::kLock).c_str(), O_RDWR | O_CLOEXEC);
  if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0)
    return fail("a board is already running at " + options.dir);
  if (options.supervisor.empty()) options.supervisor = self_dir() + "/custodo";
  // The init runs in the board root: the program's path must not depend on where we are.
  if (options.supervisor[0] != '/') {
    char cwd[PATH_MAX];
    options.supervisor = std::string(getcwd(cwd, sizeof cwd) ? cwd : ".") + "/" + options.supervisor;
  }
  if (access(options.supervisor.c_str(), X_OK) != 0)
    return fail("no supervisor program at " + options.supervisor + " (build it or give --custodo)");
  int fuse = open("/dev/fuse", O_RDWR | O_CLOEXEC);
  if (fuse < 0)
    return fail("FUSE is unavailable (/dev/fuse: " + std::string(std::strerror(errno)) +
                "); install fuse3 and run as root");
  close(fuse);
  if (!prepare_devices(options, root)) return fail("cannot prepare the devices below " + options.dir);
  int status = power_on(options, root);
  close(lock);
  return status;
}
