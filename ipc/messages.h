// The message ids of the robot's daemons: receiving module in bits 31-24, sending module in
// bits 23-16, message number in bits 15-0. A reply swaps the modules and adds one.
#pragma once
#include <cstdint>

// Modules.
constexpr int MODULE_CORECTL = 1;
constexpr int MODULE_APPBRIDGE = 3;
constexpr int MODULE_CHIMER = 4;
constexpr int MODULE_UPDATER = 5;
constexpr int MODULE_WATCHDOG = 7;  // the supervisor
constexpr int MODULE_QUOM = 8;

constexpr uint32_t MSG_SHUTDOWN_WATCHDOG = 0x0701002F;
constexpr uint32_t MSG_SHUTDOWN_WATCHDOG_ACK = 0x01070030;
constexpr uint32_t MSG_UPDATE_STAGE_START_WATCHDOG = 0x0701076D;
constexpr uint32_t MSG_UPDATE_STAGE_DONE_WATCHDOG = 0x07050776;
constexpr uint32_t MSG_UPDATE_INSTALL_VERIFY = 0x01070778;
constexpr uint32_t MSG_UPDATE_INTERNAL_ERROR = 0x0107077B;
constexpr uint32_t MSG_REBOOT_WATCHDOG = 0x07040334;
constexpr uint32_t MSG_QUOM_RESET = 0x0708032E;
constexpr uint32_t MSG_QUOM_RESET_ACK = 0x0807032F;
constexpr uint32_t MSG_SYNC_TIME_TO_MCU = 0x04070330;
constexpr uint32_t MSG_TIME_OFFSET = 0x03070330;

// Payload of MSG_SHUTDOWN_WATCHDOG.
struct ShutdownOption {
  uint8_t reboot;  // non-zero: reboot; zero: power off
  uint8_t unused;
  char sound[30];  // prompt file name, NUL-padded; empty: no prompt
};
static_assert(sizeof(ShutdownOption) == 32, "the shutdown option record fills the payload");
