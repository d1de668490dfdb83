// The simulated MCU's state: a file of key=value lines below the board root that tests and
// `custodo-board mcu` set, and that the MCU link simulator reads on every call.
//
//   link=up|down      the serial link (down: every call fails with -1)
//   mode=N            the system mode reported by check_mcu_mode
//   error=N           the error code check_mcu_error reports
//   error_result=N    check_mcu_error's result (positive: success)
//   utc=SECONDS       the MCU clock (local time) when it was set; it runs on with board time
//   utc_result=N      get_utc's result
//   pn=TEXT           the product number get_pn returns (at most 32 bytes)
//   pn_result=N       get_pn's result
//   version=TEXT      the firmware version check_version reports (at most 64 bytes)
//   version_result=N  check_version's result (0, -20 and -21 mean a version was read)
//   upgrade_result=N  upgrade_mcu_if_not_match's result
//   upgrade_delay=N   how long the firmware update takes, in board seconds
//   heartbeat_result=N  disable_mcu_heartbeat's result
//   cmd_result=N      sent_cmd's result
//
// TEXT may hold \xNN for any byte and \\ for a backslash. The file also keeps utc_anchor_us,
// the host's monotonic clock when utc was set.
#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace sim {

using McuState = std::map<std::string, std::string>;

// The state file over the defaults; a missing or unreadable file gives the defaults.
McuState mcu_state_load();

// Applies "key=value" assignments and rewrites the file atomically (temp + rename). Nothing is
// applied when one of them is invalid. 0 on success, else -1 with *error saying why.
int mcu_state_set(const std::vector<std::string>& assignments, std::string* error);

// Writes the defaults: link up, normal mode, no error, the clock at the board's local time now.
int mcu_state_reset(std::string* error);

// A number of the state; 0 when it does not read as one.
long mcu_state_number(const McuState& state, const char* key);

// A text of the state with its escapes decoded.
std::string mcu_state_text(const McuState& state, const char* key);

// The MCU clock now: utc advanced by the board time since it was set.
uint32_t mcu_clock_now(const McuState& state);

// The state as `custodo-board mcu` sets it, on one line, with the clock as it reads now.
std::string mcu_state_summary();

}  // namespace sim
