// The MCU's firmware: brought up to the version the installed system expects, and its
// version published for the other daemons.
#pragma once

// Flashes the MCU when its firmware does not match the first line of the match file.
// upgrade_mcu_if_not_match's result, or -1 when nothing was asked of the MCU.
int update_mcu(const char* match_path);

// Writes the MCU's firmware version to the version file. check_version's result, or -1 when
// the serial link cannot be opened.
int getmcuver();
