// The clock sync thread: asks the NTP servers for the board clock's offset, publishes it and
// tells the daemons that carry the time over to the MCU and use the offset.
#pragma once
#include <atomic>
#include <string>

// The thread runs while it is non-zero.
extern std::atomic<int> ntp_enable;

// Reads the server list from the configuration directory and starts the thread; the
// pthread_create result.
int create_ntp_thread(const std::string& dir);
// Clears ntp_enable and joins the thread, which sees the flag once its sleep ends. Kept for
// the shutdown path, which on purpose only logs "destroy_ntp_thread..." and leaves the thread
// running: nothing calls it, so that a stop never waits up to an hour for its sleep.
void destroy_ntp_thread();
