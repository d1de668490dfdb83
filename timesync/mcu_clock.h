// The MCU's clock and the board's: the board clock is set from the MCU once at start-up, and
// a time can be pushed to the MCU.
#pragma once

// Sets the board clock from the MCU's, unless the MCU's is in 2015 or earlier. get_utc's
// result, or -1 when the serial link cannot be opened.
int sync_ap_with_mcu();

// Sends board time `t` (seconds since the epoch) to the MCU: init_uart's result, or -1 when the
// serial link cannot be opened. Kept and never called: the MCU gets the network time from
// chimer, which the clock sync thread tells.
int sync_mcu_with_ap(int t);
