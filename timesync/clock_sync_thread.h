// The clock sync thread: asks the NTP servers for the board clock's offset, publishes it and
// tells the daemons that carry the time over to the MCU and use the offset.
#pragma once
#include <pthread.h>

#include <atomic>
#include <string>

// The thread runs while it is non-zero.
extern std::atomic<int> ntp_enable;
extern pthread_t ntp_threads;

// Reads the server list from the configuration directory and starts the thread; the
// pthread_create result.
int create_ntp_thread(const std::string& dir);
// Clears ntp_enable and joins the thread, which sees the flag once its sleep ends.
void destroy_ntp_thread();
void* ntp_thread(void*);
