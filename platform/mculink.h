// The MCU serial-link library (libmculink). On the robot it is the vendor's; the simulated
// board links the simulator in sim/mculink/.
#pragma once
#include <cstdint>

extern "C" {
// Opens the serial link; returns its descriptor, or a negative number on failure.
int init_uart(void);
void close_uart(void);
// The system mode the MCU was switched on in.
int check_mcu_mode(int fd);
// Fills *err with the MCU's error code; positive on success, 0 or negative on failure.
int check_mcu_error(int* err);
// Tells the MCU to stop expecting the board's heartbeat; negative on failure.
int disable_mcu_heartbeat(void);
// The MCU clock: seconds since the epoch in local time; negative on failure.
int get_utc(uint32_t* seconds);
// Board UTC seconds to the MCU's local-time representation.
uint32_t utc2mcutime(uint32_t t);
int sent_cmd(int command, int length, const void* data, int flag);
// Fills a 64-byte version record; 0, -20 and -21 mean it holds a version.
int check_version(void* record64);
const char* FwInfo2Str(const void* record64);
// Flashes the MCU when its firmware does not match the line; returns a status.
int upgrade_mcu_if_not_match(const char* match_line, void* result64);
// Fills a 32-byte buffer with the product number; negative on failure.
int get_pn(char* buf32);

// Defined by the program; the library reads it as its print level.
extern int mculink_print_level;
}
