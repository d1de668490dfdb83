// The hardware watchdog: armed at start-up and fed from a thread of its own, closed with the
// magic character on an orderly stop so that a planned power-off or reboot is not cut short.
#pragma once
#include <atomic>

// The open device; 0 before the first opening, -1 when closed.
extern std::atomic<int> wdogfd;
// Keep-alive requests since start, one per 8 seconds: the loop's coarse uptime.
extern std::atomic<int> wdogcnt;
extern std::atomic<int> wdog_enable;

int active_wdog();
void feed_wdog();
void deactive_wdog();
int create_hw_wdog_thread();
void destroy_hw_wdog_thread();
