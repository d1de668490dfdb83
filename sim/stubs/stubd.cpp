// The stub daemon of the simulated board. Every daemon of a process list runs this program
// under its own name (a symlink to it), so its name is the base name of argv[0]. It records
// its start, every signal and its exit in sim/daemons.log, and behaves as the file
// sim/stubs/<name> says, read at start:
//   hup-exit (default)  exits 0 on SIGHUP or SIGTERM
//   hup-ignore          records SIGHUP and goes on; exits 0 on SIGTERM
//   stuck               first reads the board's stuck file, which the board answers only when
//                       released, so that even SIGKILL cannot end it at once
//   zombie              the daemon goes on in a child (hup-exit); the parent takes the name
//                       "<name>-parent" and never reaps it, so the child's end leaves a zombie
//   listen MODULE       as hup-exit, and receives on the module's IPC socket through the open
//                       IPC library, recording each packet as "receive 0xID LENGTH PAYLOAD"
// With NOTIFY_SOCKET in its environment it also speaks the notification protocol as the file
// sim/stubs-notify/<name> says: "ready S" sends READY=1 S seconds of board time after its start,
// "watchdog S" sends WATCHDOG=1 at its start and every S seconds; each message is recorded as
// "notify TEXT". On SIGUSR2 it takes the request in sim/stubs-requests/<name>: "hang" (it sends
// nothing more of its own), "grow MIB" (that much more memory, written to), "say TEXT" (sends
// TEXT), recorded as "request ..." once done; without a request, SIGUSR2 ends it as before.
// Other signals end it as their default action would.
#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/nodeipc.h"
#include "sim/common/hex_text.h"
#include "sim/common/sim_files.h"

extern char** environ;

// The module that RecvPacket binds: the one given to `listen`.
int nodeipc_module = -1;

namespace {

std::string name;

void note(const std::string& what) {
  sim::record(sim::kDaemonsLog, name + " " + std::to_string(getpid()) + " " + what);
}

// The behaviour, and the module of `listen`.
std::string read_mode(int* module) {
  std::ifstream in(sim::file(sim::kStubModes) + "/" + name);
  std::string mode;
  in >> mode >> *module;
  return mode.empty() ? "hup-exit" : mode;
}

// The notification protocol: what the file says, and the requests on a running stub.
double ready_s = -1;
double watchdog_s = 0;
std::atomic<bool> hung{false};

void read_notify_settings() {
  std::ifstream in(sim::file(sim::kStubNotify) + "/" + name);
  std::string key;
  double seconds;
  while (in >> key >> seconds) (key == "ready" ? ready_s : watchdog_s) = seconds;
}

void send_notification(const std::string& text) {
  const char* path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path == nullptr || std::strlen(path) >= sizeof addr.sun_path) return note("notify: no socket for " + text);
  std::strcpy(addr.sun_path, path);
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  bool sent = fd >= 0 && sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&addr), sizeof addr) >= 0;
  if (fd >= 0) close(fd);
  note((sent ? "notify " : "notify failed: ") + text);
}

// Board time from the host's monotonic clock.
timespec board_moment(double seconds_from_now) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  double at = now.tv_sec + now.tv_nsec / 1e9 + seconds_from_now / sim::timescale();
  return timespec{static_cast<time_t>(at), static_cast<long>((at - std::floor(at)) * 1e9)};
}

void* speak(void*) {
  double since_start = 0;
  double next_ready = ready_s, next_watchdog = watchdog_s > 0 ? 0 : -1;
  while (next_ready >= 0 || next_watchdog >= 0) {
    double next = next_ready < 0 ? next_watchdog : next_watchdog < 0 ? next_ready : std::min(next_ready, next_watchdog);
    timespec at = board_moment(next - since_start);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
    }
    since_start = next;
    if (hung) return nullptr;
    if (next == next_ready) {
      send_notification("READY=1");
      next_ready = -1;
    }
    if (next == next_watchdog) {
      send_notification("WATCHDOG=1");
      next_watchdog += watchdog_s;
    }
  }
  return nullptr;
}

std::string grown;  // what "grow" asked for, kept

bool take_request() {
  std::string path = sim::file(sim::kStubRequests) + "/" + name;
  std::string request = sim::read_file(path);
  if (request.empty() || unlink(path.c_str()) != 0) return false;
  if (request.back() == '\n') request.pop_back();
  std::istringstream words(request);
  std::string word;
  words >> word;
  if (word == "hang") hung = true;
  long mib = word == "grow" ? std::atol(request.c_str() + 5) : 0;
  if (mib > 0) grown.append(static_cast<size_t>(mib) << 20, 'x');
  if (word == "say") send_notification(request.substr(4));
  note("request " + request);  // done
  return true;
}

bool ignored_by_default(int sig) {
  return sig == SIGCHLD || sig == SIGWINCH || sig == SIGURG || sig == SIGCONT;
}

// Every signal is blocked and taken here one at a time, so none is lost and none interrupts
// a record half-written.
[[noreturn]] void serve(bool ignore_hup) {
  sigset_t all;
  sigfillset(&all);
  for (;;) {
    int sig = sigwaitinfo(&all, nullptr);
    if (sig < 0) continue;
    note("signal " + std::to_string(sig));
    if (sig == SIGTERM || (sig == SIGHUP && !ignore_hup)) {
      note("exit 0");
      _exit(0);  // at once: a receiving thread may still be at work
    }
    if (sig == SIGHUP || ignored_by_default(sig) || (sig == SIGUSR2 && take_request())) continue;
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, sig);
    raise(sig);
    sigprocmask(SIG_UNBLOCK, &one, nullptr);
    sigprocmask(SIG_BLOCK, &one, nullptr);  // back here only after a stop signal
  }
}

void stay_stuck() {
  int fd = open((sim::file(sim::kFuseDir) + std::string("/stuck")).c_str(), O_RDONLY | O_CLOEXEC);
  char byte;
  ssize_t n = fd >= 0 ? read(fd, &byte, 1) : -1;
  note("released " + std::to_string(n));
  if (fd >= 0) close(fd);
}

// A new name for ps and pidof: the kernel's command name, and argv[0] rewritten in place. The
// environment strings that follow the arguments give room for a longer name once they are
// copied away.
void rename_self(int argc, char** argv, const std::string& title) {
  std::string comm = (name.size() > 8 ? name.substr(0, 8) : name) + "-parent";
  prctl(PR_SET_NAME, comm.c_str());
  char* begin = argv[0];
  char* end = argv[argc - 1] + std::strlen(argv[argc - 1]) + 1;
  for (char** e = environ; *e != nullptr; ++e) {
    if (*e == end) end += std::strlen(*e) + 1;
    *e = strdup(*e);
  }
  size_t room = static_cast<size_t>(end - begin);
  std::memset(begin, 0, room);
  std::memcpy(begin, title.data(), std::min(title.size(), room - 1));
}

void leave_zombie(int argc, char** argv) {
  pid_t child = fork();
  if (child < 0) {
    note("fork failed");
    return;
  }
  if (child == 0) return;
  rename_self(argc, argv, name + "-parent");
  note("zombie-parent " + std::to_string(child));
  for (;;) pause();
}

void* receive(void*) {
  IpcPacket packet{};
  while (RecvPacket(&packet) > 0) {
    note("receive " + sim::packet_text(packet));
    packet = IpcPacket{};
  }
  note(std::string("receive failed: ") + std::strerror(errno));
  return nullptr;
}

// Signals stay with the main thread: the receiving one starts with all of them blocked.
void listen(int module) {
  nodeipc_module = module;
  pthread_t thread;
  if (pthread_create(&thread, nullptr, receive, nullptr) != 0) note("cannot listen");
}

}  // namespace

int main(int argc, char** argv) {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, nullptr);
  // Dispositions survive exec: a SIGCHLD ignored by the starter would reap the zombie.
  for (int sig = 1; sig < NSIG; ++sig) signal(sig, SIG_DFL);

  const char* slash = std::strrchr(argv[0], '/');
  name = slash ? slash + 1 : argv[0];
  std::string start = "start";
  for (int i = 1; i < argc; ++i) start += std::string(" ") + argv[i];
  note(start);

  int module = -1;
  std::string mode = read_mode(&module);
  if (mode == "stuck") stay_stuck();
  if (mode == "zombie") leave_zombie(argc, argv);
  if (mode == "listen") listen(module);
  read_notify_settings();
  pthread_t speaker;
  if ((ready_s >= 0 || watchdog_s > 0) && pthread_create(&speaker, nullptr, speak, nullptr) != 0) note("cannot speak");
  serve(mode == "hup-ignore");
}
