// What happens to the board as a whole (boots, supervisor starts and exits, reboots, the end
// of a run): recorded with the board's time in sim/init.log and told on standard error.
#pragma once
#include <string>

void board_event(const std::string& line);
