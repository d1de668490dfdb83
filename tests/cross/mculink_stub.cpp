// A stand-in for the vendor's libmculink, for checking that a cross build of the robot's
// variant finds a library placed in a sysroot and links it. Every call fails.
#include "platform/mculink.h"

extern "C" {
int init_uart(void) { return -1; }
void close_uart(void) {}
int check_mcu_mode(int) { return -1; }
int check_mcu_error(int*) { return -1; }
int disable_mcu_heartbeat(void) { return -1; }
int get_utc(uint32_t*) { return -1; }
uint32_t utc2mcutime(uint32_t t) { return t; }
int sent_cmd(int, int, const void*, int) { return -1; }
int check_version(void*) { return -1; }
const char* FwInfo2Str(const void*) { return ""; }
int upgrade_mcu_if_not_match(const char*, void*) { return -1; }
int get_pn(char*) { return -1; }
}
