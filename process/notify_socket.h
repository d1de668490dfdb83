// The notification socket of the policy file's `notify` and `heartbeat` daemons: a Unix
// datagram socket (board path NotifySocket) that speaks the sd_notify protocol, named to those
// daemons in NOTIFY_SOCKET. A datagram holds newline-separated KEY=VALUE assignments; READY=1,
// WATCHDOG=1, WATCHDOG=trigger and STATUS=text are taken, others ignored. The sender is known
// by its credentials: a message counts only for the daemon whose process the supervisor knows
// to be the sender. A message from another process is held until the check after next (a
// daemon just started may speak before its id is found), then dropped and counted; a datagram
// that holds none of the four is dropped and counted at once. The first drop of each kind is
// logged, the others only counted. A thread of its own receives; nothing runs when nothing is
// sent.
#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

constexpr size_t kStatusBytes = 128;  // a longer STATUS= text is cut

// What one datagram says.
struct Notification {
  bool ready = false;
  bool watchdog = false;
  bool trigger = false;  // WATCHDOG=trigger: hung by its own word
  bool has_status = false;
  char status[kStatusBytes] = {};
};

// False when the datagram holds none of the four assignments.
bool parse_notification(const char* data, size_t size, Notification* out);

// What the supervisor has heard from one daemon's current process.
struct NotifyState {
  int pid = 0;                   // the process followed; 0: none
  bool ready = false;
  int64_t last_watchdog_ms = 0;  // board time of the last WATCHDOG=1; 0: none yet
  bool trigger = false;
  char status[kStatusBytes] = {};
};

// Binds the socket and starts the receiving thread for the daemons named. False, after a log
// line, when it cannot: then nothing listens and no daemon is told of the socket.
bool notify_socket_start(const std::vector<std::string>& names);

// "NOTIFY_SOCKET=<path>" once the socket listens, else nullptr.
const char* notify_variable();

// Main thread: the daemon's process is now `pid` (below 1: none). A new process starts with
// nothing heard, except what it said while it was not yet known.
void notify_follow(const std::string& name, int pid);

// Main thread, at every check: other processes' messages held since the check before are
// dropped.
void notify_expire_strangers();

NotifyState notify_state(const std::string& name);

// Main thread: waits up to `ms` of board time for the daemon's READY=1. On each READY=1 that
// comes, `pid_of` says which process the daemon is; true once that process has said it.
bool notify_wait_ready(const std::string& name, int64_t ms, const std::function<int()>& pid_of);

// Datagrams dropped so far: from other processes, and holding no notification.
struct NotifyDrops {
  uint64_t strangers = 0;
  uint64_t garbage = 0;
};
NotifyDrops notify_drops();
