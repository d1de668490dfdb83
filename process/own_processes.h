// The supervisor's own processes among those a search tool finds by name. Only a process of
// the supervisor's user can be a daemon it started: another user's process of the same name
// never counts, never stands for a daemon and is never killed.
#pragma once
#include <sys/types.h>

#include <vector>

// Adds to `ids` those that `search` (pidof, pgrep) prints, in its order, of the processes
// whose real and effective user are the supervisor's; false when the tool could not be run.
bool own_processes(const char* const search[], std::vector<pid_t>* ids);

// Kills with SIGKILL the own processes that `search` finds, in place of the killall or pkill
// of `cmdline`, which is logged as tq_system logs it: exit code 0 when one was killed, 1 when
// none was, as both tools give.
int kill_own_processes(const char* cmdline, const char* const search[]);
