// The policy file <conf>/ProcessPolicy.conf: beyond the described behaviour, opt-in rules per
// daemon of the process list, one INI section each:
//
//   [AppBridge]
//   notify = yes          ; READY=1 ends its wait after start early
//   heartbeat = 30        ; WATCHDOG=1 at least every 30 s once the first came
//   restart-backoff = 60  ; dying within a minute of its start: restart delay 1, 2, 4 ... 60 s
//   memory-max = 64M      ; resident above this on 3 checks in a row: stopped and restarted
//
// Comments begin with ';' or '#', at the start of a line or after a blank.
#pragma once
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "process/process_management.h"

constexpr const char* kPolicyFileName = "ProcessPolicy.conf";

// The rules of one daemon; 0 or false: that rule is off.
struct DaemonPolicy {
  std::string name;
  bool notify = false;
  int heartbeat_s = 0;
  int backoff_limit_s = 0;
  uint64_t memory_max = 0;  // bytes
};

// Reads the policy file at `path` for the daemons of `processes`. Unknown keys, names that are
// no daemon of the list, bad values and lines that are none of a section, a key or a comment get
// one log line each and are ignored; so does a restart-backoff for a key daemon, which restarts
// all. Returns the daemons that keep a rule, in list order. No file: nothing, and no line.
std::vector<DaemonPolicy> read_policy_file(const std::string& path, const std::deque<ProcessInfo>& processes);

// "64M" and the like: a whole number with an optional K, M or G (binary units); 0 when the text
// is no such size or the size is 0 or beyond 64 bits.
uint64_t parse_size(const std::string& text);
