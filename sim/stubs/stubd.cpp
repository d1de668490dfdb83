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
// Other signals end it as their default action would.
#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
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
    if (sig == SIGHUP || ignored_by_default(sig)) continue;
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
  serve(mode == "hup-ignore");
}
