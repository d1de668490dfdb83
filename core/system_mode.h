// The system mode the MCU reports at power-on, the MCU-ready marker, and what each mode starts.
#pragma once

// The MCU's system mode, or -1 when the serial link cannot be opened.
int getsysmode();
int is_mcu_ready();
int set_mcu_ready();

// A silent MCU is fatal without the ready marker: the board waits an hour, fed, then ends.
void check_mcu_readiness(int mode);

// The process list file of the mode. The self-test modes run their test and end the process.
const char* process_list_for_mode(int mode);
