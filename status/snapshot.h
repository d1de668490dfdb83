// The supervisor's state as one snapshot, /dev/shm/custodo-status.json, that custodo-status and
// fleet tooling read. Every subsystem reports what changed through these calls, from the thread
// that changed it; the file is rewritten only when a value really changed, never on a timer.
#pragma once
#include <deque>
#include <optional>
#include <tuple>
#include <string>

#include "process/process_management.h"

// The single-instance lock is held: the snapshot is written now and after every change, unless
// CUSTODO_STATUS is 0. Before this call changes are only kept.
void status_start(const char* version);

// "start-up phase N" (the numbered phase under way), "supervising", "stopping".
void status_phase(const std::string& phase);
// The MCU's system mode; negative: the MCU did not answer.
void status_mode(int mode);
void status_crashes(int current, int total);
void status_boot_reason(int word);
void status_partition(int booted, int flag);
void status_update_progress(int flag);
void status_clock(const std::string& server, bool answered, int offset);
void status_mcu_version(const std::string& version);
void status_product_number(const std::string& pn);
void status_region(const std::string& region);

enum class DaemonState { Running, Vanished, HeldBack, Stopping, Stopped };

// The list in use: every daemon stopped, nothing counted yet.
void status_list(const std::string& path, const std::deque<ProcessInfo>& processes);
// The list's ids were looked up: a daemon found runs under its id; one that ran and was not
// found has vanished.
void status_pids(const std::deque<ProcessInfo>& processes);
// A start of the daemon (a restart when the check made it): it runs, its id still unknown.
void status_daemon_started(const std::string& name, bool by_check);
void status_daemon(const std::string& name, DaemonState state);
// The stop of every daemon is done.
void status_all_stopped();

// Beyond the described behaviour: a daemon with a rule of the policy file (process/policy.h), as
// the last check saw it. Daemons without one have no "policy" in the snapshot.
struct PolicyReport {
  bool ready = false;
  std::optional<int> heartbeat_age_s;  // since its last WATCHDOG=1; none from this process yet
  std::string status;                  // its last STATUS=
  int backoff_s = 0;                   // the restart delay in force
  std::optional<int> resident_kib, memory_max_kib;
  bool operator==(const PolicyReport& o) const {
    return std::tie(ready, heartbeat_age_s, status, backoff_s, resident_kib, memory_max_kib) ==
           std::tie(o.ready, o.heartbeat_age_s, o.status, o.backoff_s, o.resident_kib, o.memory_max_kib);
  }
};
void status_policy(const std::string& name, const PolicyReport& report);
