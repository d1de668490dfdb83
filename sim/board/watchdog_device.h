// The board's hardware watchdog as its driver behaves: opening arms the timer, a keep-alive or
// a write feeds it, a close after the magic "V" disarms it, and an armed timer left unfed for
// its time-out resets the board. Every request is recorded in sim/watchdog.log.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

// A handle for one open of the device.
uint64_t watchdog_open();
void watchdog_write(uint64_t handle, const char* data, size_t size);
// An errno value (0: done). Requests that answer with a number fill *out and set *answered.
int watchdog_ioctl(unsigned request, const void* in, size_t in_size, int* out, bool* answered);
void watchdog_release(uint64_t handle);

// After a reboot: the closes of the ended boot are taken in, then the timer is disarmed.
void watchdog_new_boot();
// True once when the armed timer has run out; the reset is recorded and the timer disarmed.
bool watchdog_expired();
// Host milliseconds until the armed timer could run out; -1 while it is disarmed.
int watchdog_wait_ms();
// Readable (an eventfd) whenever the timer is armed or its time-out changes: a wait on
// watchdog_wait_ms() is to be taken up again.
int watchdog_changes();
std::string watchdog_status();
