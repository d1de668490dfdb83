// Beyond the described behaviour, opt-in with CUSTODO_FAST_RESTART=1: every daemon of the list
// is watched through a pidfd, and the moment one ends an extra CHECK_PROCESS is posted, so the
// check that finds it gone, with all its lines, runs at once instead of at the next tick. Only
// for a daemon watched for a second or more: one that dies sooner waits for the tick, as
// without the option. Off by default: the one-second timer alone drives the checks.
#pragma once
#include <deque>

#include "process/process_management.h"

// Reads CUSTODO_FAST_RESTART; when it is 1, starts the watching thread on the list's ids.
// Called once by the main thread, when the main loop is about to begin.
void exit_watch_start(const std::deque<ProcessInfo>& processes);

// The list's ids changed: the watched set follows them. Main thread only.
void exit_watch_follow(const std::deque<ProcessInfo>& processes);

// The daemons are being stopped: their ends are no news any more.
void exit_watch_end();
