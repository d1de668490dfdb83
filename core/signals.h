// Stop signals, as every wait of the main thread meets them.
//
// A stop signal only records the request. The main thread runs the stop sequence itself, in
// ordinary context, once it is at a wait: the event queue, a sleep, a child. So a signal that
// lands while the main thread holds the allocator's or a stream's lock cannot deadlock it. The
// request also wakes the wait, so one that lands just after the wait looked, before it
// blocked, is acted on at once all the same. A fault raised by the code itself runs the stop
// sequence inside the handler on the main thread; a worker thread that faults waits while the
// main thread stops.
#pragma once
#include <csignal>

// Called on the main thread: installs the handler of every stop signal, `stop_sequence` being
// what the main thread runs for the first one (it never returns). 0 when every handler is
// installed, -1 at the first failure.
int install_stop_signals(void (*stop_sequence)(int signal));

// Runs the stop sequence when a stop signal came, if called on the main thread and no stop is
// under way yet. Every wait of the main thread calls it before it blocks and when a signal
// interrupts it.
void stop_if_requested();

// Waits until `fd` is readable (or at its end or in error), giving way to a stop request on
// the main thread. 0, or -1 when the descriptor cannot be waited for.
int wait_readable(int fd);

// The signals that only the main thread takes; worker threads block them.
void main_thread_signals(sigset_t* set);
