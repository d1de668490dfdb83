#include "core/signals.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "core/event_queue.h"
#include "core/liveness.h"
#include "platform/board_time.h"

namespace {

constexpr int kHandledSignals[] = {SIGTERM, SIGINT,  SIGQUIT, SIGSEGV, SIGBUS,  SIGUSR1,
                                   SIGUSR2, SIGILL,  SIGTRAP, SIGABRT, SIGFPE,  SIGHUP};
// Raised by the code on the thread that runs it; blocking them would not hold them back.
constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGTRAP, SIGABRT, SIGFPE};

pthread_t main_thread;
void (*stop_sequence)(int signal) = nullptr;
std::atomic<int> requested{0};  // the first stop signal
std::atomic<bool> forwarded{false};
std::atomic<bool> stopping{false};
int wake_fd = -1;  // readable once a stop is requested

bool is_fault(int signal) {
  for (int fault : kFaultSignals)
    if (signal == fault) return true;
  return false;
}

// A fault of the code itself (the kernel's, or abort() and raise()), not one sent from outside.
bool raised_here(int signal, const siginfo_t* info) {
  if (!is_fault(signal)) return false;
  if (info->si_code > 0) return true;
  return info->si_code == SI_TKILL && info->si_pid == getpid() && !forwarded;
}

// The sequence ends the process.
void stop(int signal) {
  stopping = true;
  stop_sequence(signal);
}

void on_signal(int signal, siginfo_t* info, void*) {
  int saved = errno;
  int none = 0;
  if (requested.compare_exchange_strong(none, signal)) {
    // A wait the main thread is about to begin comes back at once.
    uint64_t one = 1;
    [[maybe_unused]] ssize_t woken = write(wake_fd, &one, sizeof one);
    wake_event_wait();
  }
  bool fault = raised_here(signal, info);
  if (!pthread_equal(pthread_self(), main_thread)) {
    forwarded = true;
    pthread_kill(main_thread, signal);
    if (fault) {
      // This thread cannot go on; the main thread stops the process meanwhile.
      for (;;) pause();
    }
  } else if (fault) {
    if (stopping) {
      // A fault in the stop sequence itself: nothing sensible is left to do.
      std::signal(signal, SIG_DFL);
      raise(signal);
    }
    stop(signal);
  }
  // Otherwise the interrupted wait of the main thread stops.
  errno = saved;
}

// What wakes a wait of this thread for a stop request: -1 but on the main thread before the
// stop sequence runs, whose own waits must last.
int stop_wake_fd() {
  return stopping || !pthread_equal(pthread_self(), main_thread) ? -1 : wake_fd;
}

// Sleeps of the main thread give way to a stop request, and count as progress.
int main_thread_sleeps(BoardSleepEvent event) {
  if (!pthread_equal(pthread_self(), main_thread)) return -1;
  if (event != kSleepEnds) stop_if_requested();
  described_wait(event != kSleepEnds);
  return stop_wake_fd();
}

}  // namespace

void main_thread_signals(sigset_t* set) {
  sigemptyset(set);
  sigaddset(set, SIGALRM);
  for (int signal : kHandledSignals)
    if (!is_fault(signal)) sigaddset(set, signal);
}

int install_stop_signals(void (*sequence)(int signal)) {
  main_thread = pthread_self();
  stop_sequence = sequence;
  wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  board_sleep_hook = main_thread_sleeps;
  struct sigaction action {};
  action.sa_sigaction = on_signal;
  // No SA_RESTART: a wait of the main thread must come back to look at the request.
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  for (int signal : kHandledSignals) sigaddset(&action.sa_mask, signal);
  for (int signal : kHandledSignals)
    if (sigaction(signal, &action, nullptr) != 0) return -1;
  return 0;
}

void stop_if_requested() {
  int signal = requested.load();
  if (signal == 0 || stopping || !pthread_equal(pthread_self(), main_thread)) return;
  stop(signal);
}

int wait_readable(int fd) {
  for (;;) {
    stop_if_requested();
    // A descriptor of -1 is left out of the poll.
    pollfd watch[] = {{fd, POLLIN, 0}, {stop_wake_fd(), POLLIN, 0}};
    if (poll(watch, 2, -1) < 0 && errno != EINTR) return -1;
    if (watch[0].revents & POLLNVAL) return -1;
    if (watch[0].revents != 0) return 0;
  }
}
