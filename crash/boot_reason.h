// The kernel's boot-reason word, merged with the MCU's reason and error code, and the crash flag
// the supervisor sets in it before a crash reboot.
#pragma once

// The merged word of this boot, as merge_boot_reason returned it.
extern int g_bootreason;

// `mcu` is the value the MCU reported, negative when it could not be asked.
int merge_boot_reason(int mcu);
int set_crash_flag(int flag);
