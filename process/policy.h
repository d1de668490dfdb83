// Beyond the described behaviour, opt-in with <conf>/ProcessPolicy.conf (policy_file.h): per
// daemon, readiness (notify), a heartbeat, a restart back-off and a memory cap. Without the
// file, or for a daemon without rules, every call here returns at once and changes nothing: no
// socket, no thread, no variable in an environment, no log line, no system call.
#pragma once
#include <deque>
#include <string>

#include "process/process_management.h"

// InitialConfig: reads the policy file beside the list file; starts the notification socket
// (notify_socket.h) when a daemon has notify or heartbeat.
void policy_load(const std::string& list_path, const std::deque<ProcessInfo>& processes);

// StartProc: "NOTIFY_SOCKET=..." for a notify or heartbeat daemon while the socket listens,
// else nullptr.
const char* policy_variable(const std::string& name);

// StartProc: the daemon was just started.
void policy_started(const std::string& name);

// StartAllProcess, after "sleep N s": a notify daemon's wait after start, which its READY=1
// ends early; one line says which ended it. False for every other daemon, whose wait is the
// described sleep.
bool policy_wait_ready(RobotProcessManagement& manager, const ProcessInfo& rec);

// CheckAllProcess and ReCheck: the list's ids may have changed.
void policy_follow(const std::deque<ProcessInfo>& processes);

// Monitor, before its pass: a heartbeat daemon that fell silent, or said WATCHDOG=trigger, is
// hung and gets SIGABRT, and SIGKILL at the first check after its kill time-out; a daemon
// above its memory cap on 3 checks in a row is stopped as KillAllProcess stops one. The pass
// then finds them gone and does what it does for any daemon that vanished.
void policy_check(RobotProcessManagement& manager);

// Monitor, for a daemon that is not running: whether a back-off wait holds its restart (the
// pass goes on without a line), ends now (it is started without the lines that found it gone,
// which came when it was found), or none is under way (the described steps).
enum RestartTurn { RESTART_AS_DESCRIBED, RESTART_WAITS, RESTART_NOW };
RestartTurn policy_restart_turn(const std::string& name);

// Monitor, for an ordinary daemon found gone and counted: true when its restart waits (a
// restart-backoff daemon that died within a minute of its start); a line when the wait changes.
bool policy_put_off_restart(const std::string& name);
