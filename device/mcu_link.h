// Every talk with the MCU opens the serial link and closes it again before returning.
#pragma once

// Opens the link: init_uart's result. On failure logs `failed`, the result and `after`, and
// closes the link again.
int open_mcu_link(const char* failed, const char* after = "");
