// The stop path: a termination or fault signal stops the daemons and ends the supervisor.
//
// A stop signal only records the request. The main thread runs the stop sequence itself, in
// ordinary context, once it is at a wait: the event queue, a sleep, a child. So a signal that
// lands while the main thread holds the allocator's or a stream's lock cannot deadlock it. A
// fault raised by the code itself keeps a best-effort stop inside the handler on the main
// thread; a worker thread that faults waits while the main thread stops.
#pragma once
#include <csignal>

// 0 when every handler is installed, -1 at the first failure. Called on the main thread.
int fl_signalinit();

// The stop sequence for `signal`; never returns.
[[noreturn]] void fl_onsignal(int signal);

// Runs the stop sequence when a stop signal came, if called on the main thread and no stop
// is under way yet. Every wait of the main thread calls it before it blocks and when a
// signal interrupts it.
void stop_if_requested();

// The signals that only the main thread takes; worker threads block them.
void main_thread_signals(sigset_t* set);

// Tells the MCU to stop expecting the board's heartbeat, and logs how that went.
void stop_mcu_heartbeat();
