// The commands of custodo-board, one function each: arguments after the command word, the
// process's exit status as the result.
#pragma once
#include "sim/board/command_line.h"

int cmd_init(const Args& args);
int cmd_run(const Args& args);
int cmd_send(const Args& args);
int cmd_poweroff(const Args& args);
int cmd_reboot(const Args& args);
int cmd_quom_reset(const Args& args);
int cmd_stage_start(const Args& args);
int cmd_stage_done(const Args& args);
int cmd_chimer_reboot(const Args& args);
int cmd_recv(const Args& args);
int cmd_mcu(const Args& args);
int cmd_counter(const Args& args);
int cmd_wallclock(const Args& args);
int cmd_kill(const Args& args);
int cmd_exec(const Args& args);
int cmd_hold(const Args& args);
int cmd_release(const Args& args);
int cmd_daemon(const Args& args);
int cmd_unstick(const Args& args);
int cmd_ntpdate(const Args& args);
int cmd_sound(const Args& args);
int cmd_show(const Args& args);

// The board's init, PID 1 of a booted board (hidden: `run` starts it).
int cmd_board_init(const Args& args);
