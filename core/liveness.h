// Beyond the described behaviour, opt-in with CUSTODO_LIVENESS_S=N: the watchdog feeder stops
// feeding once the main thread has made no progress for N seconds, so that the hardware
// watchdog resets a board whose supervisor hangs (a command that never returns, a deadlock)
// instead of keeping it alive with nothing supervised. Off by default.
#pragma once

// Reads CUSTODO_LIVENESS_S; called once by the main thread at start.
void liveness_init();

// The main thread moved on: a check, a start-up phase, a daemon started or stopped.
void note_progress();

// The main thread is in a wait the supervisor means to make (a sleep, the MCU's firmware
// update): it counts as progress for as long as it lasts.
void described_wait(bool waiting);

// For the feeder: whether the main thread has made no progress for longer than allowed.
bool main_thread_stalled();
