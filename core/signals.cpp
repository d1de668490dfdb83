#include "core/signals.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

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
  requested.compare_exchange_strong(none, signal);
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

// Sleeps of the main thread give way to a stop request, and count as progress.
void main_thread_sleeps(BoardSleepEvent event) {
  if (!pthread_equal(pthread_self(), main_thread)) return;
  if (event != kSleepEnds) stop_if_requested();
  described_wait(event != kSleepEnds);
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
