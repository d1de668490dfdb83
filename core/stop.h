// The stop path: a termination or fault signal stops the daemons and ends the supervisor.
#pragma once

// Installs the handlers of the stop signals (core/signals.h); 0, or -1 at the first failure.
int fl_signalinit();

// The stop sequence for `signal`, run by the main thread; never returns.
[[noreturn]] void fl_onsignal(int signal);
