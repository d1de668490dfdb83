// The stop path: a termination or fault signal stops the daemons and ends the supervisor.
#pragma once

// 0 when every handler is installed, -1 at the first failure.
int fl_signalinit();
[[noreturn]] void fl_onsignal(int signal);
// Tells the MCU to stop expecting the board's heartbeat, and logs how that went.
void stop_mcu_heartbeat();
