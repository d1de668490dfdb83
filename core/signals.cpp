#include "core/signals.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "core/liveness.h"
#include "core/log_line.h"
#include "core/process_end.h"
#include "crash/boot_reason.h"
#include "crash/crash_counter.h"
#include "platform/board_time.h"
#include "platform/mculink.h"
#include "process/process_management.h"
#include "update/boot_flags.h"
#include "watchdog/hw_watchdog.h"

namespace {

constexpr int kHandledSignals[] = {SIGTERM, SIGINT,  SIGQUIT, SIGSEGV, SIGBUS,  SIGUSR1,
                                   SIGUSR2, SIGILL,  SIGTRAP, SIGABRT, SIGFPE,  SIGHUP};
// Raised by the code on the thread that runs it; blocking them would not hold them back.
constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGTRAP, SIGABRT, SIGFPE};

pthread_t main_thread;
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
    fl_onsignal(signal);
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

int fl_signalinit() {
  main_thread = pthread_self();
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
  fl_onsignal(signal);
}

void stop_mcu_heartbeat() {
  int result = disable_mcu_heartbeat();
  if (result < 0)
    log_line("disable_mcu_heartbeat() failed err = ", result);
  else
    log_line("disable_mcu_heartbeat done...");
}

void fl_onsignal(int signal) {
  stopping = true;
  log_line("catch signal:", signal);
  ProcessManagement.InitialMonitor();
  deactive_wdog();
  clear_crash_time();
  if (signal == SIGUSR1) {
    log_line("catch sigusr1 exit immediately");
    set_crash_flag(0);
    log_line("set_crash_flag(0)");
    restore_partition_flag();
    log_line("restore_partition_flag");
    ProcessManagement.KillAllProcess(KILL_NOW);
    stop_mcu_heartbeat();
    end_process(0);
  }
  log_line("stop tqcustodo, killall process then exit");
  ProcessManagement.KillAllProcess(KILL_WAIT);
  set_crash_flag(0);
  if (signal == SIGTERM) stop_mcu_heartbeat();
  end_process(2);
}
