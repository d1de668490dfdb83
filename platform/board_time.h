// Board time: sleeps, the interval timer and the wall clock. On the robot these are the plain
// system calls. On the simulated board CUSTODO_SIM_TIMESCALE=k makes sleeps and the timer k
// times shorter while the board's clocks run k times faster, and the wall clock is the
// board's own, so that the host's clock is never set.
#pragma once
#include <sys/time.h>

#include <cstdint>

// Sleeps the full number of seconds: a signal does not cut it short. A cancellation point.
void board_sleep(unsigned seconds);

// Called, when set, around every sleep: kSleepBegins before it, kSleepInterrupted whenever a
// signal or the descriptor it returned interrupts it (the program's chance to act on a signal
// in ordinary context; it may not return), kSleepEnds after it. The descriptor (or -1 for
// none), once readable, interrupts the sleep: so a signal that lands after the hook looked
// and before the sleep blocks is not slept through.
enum BoardSleepEvent { kSleepBegins, kSleepInterrupted, kSleepEnds };
extern int (*board_sleep_hook)(BoardSleepEvent event);

// The millisecond count held in the counter device's 8 bytes: on the robot the word itself; on
// the simulated board computed from it (sim/common/sim_files.h).
uint64_t board_counter_ms(uint64_t word);

// Milliseconds of board time since some fixed moment, never set back.
int64_t board_monotonic_ms();

// How many times faster board time runs than the host's: 1 on the robot.
unsigned board_timescale();

// Waits up to `ms` milliseconds of board time for `fd` to become readable, as board_sleep
// sleeps (signals resume it, the hook is told): 1 when it became readable, 0 when the time ran
// out or the wait failed.
int board_wait_readable(int fd, unsigned ms);

// Arms ITIMER_REAL with a first expiry and an interval of `seconds`; setitimer's result.
int board_interval_timer(unsigned seconds);

int board_gettimeofday(struct timeval* tv, struct timezone* tz);
int board_settimeofday(const struct timeval* tv, const struct timezone* tz);
