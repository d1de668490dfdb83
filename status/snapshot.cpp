#include "status/snapshot.h"

#include <jansson.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <optional>
#include <vector>

#include "core/log_line.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"
#include "platform/state_file.h"
#include "update/boot_flags.h"

namespace {

struct Daemon {
  std::string name;
  bool key = false;
  int pid = 0;  // 0: not known
  DaemonState state = DaemonState::Stopped;
  int starts = 0;
  int restarts = 0;
  std::string since;
  std::optional<std::string> last_vanished;
  std::optional<PolicyReport> policy;
};

struct Clock {
  std::string server;
  bool answered = false;
  int offset = 0;
  std::string time;
};

struct Snapshot {
  bool writing = false;
  bool write_failed = false;
  int pid = 0;
  std::string version;
  std::string phase;
  std::optional<std::string> list, mcu_version, product_number, region;
  std::optional<int> mode, current_crashes, total_crashes, boot_reason, booted, partition_flag,
      update_progress;
  std::optional<Clock> clock;
  std::vector<Daemon> daemons;
};

// The main thread, the clock sync thread and the IPC thread report changes.
std::mutex guard;
Snapshot snapshot;

std::string now_text() {
  timeval now{};
  board_gettimeofday(&now, nullptr);
  time_t seconds = now.tv_sec;
  struct tm utc {};
  gmtime_r(&seconds, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

const char* state_name(DaemonState state) {
  switch (state) {
    case DaemonState::Running: return "running";
    case DaemonState::Vanished: return "vanished";
    case DaemonState::HeldBack: return "held back";
    case DaemonState::Stopping: return "stopping";
    case DaemonState::Stopped: return "stopped";
  }
  return "";
}

// Names, versions and server lines are whatever bytes the board holds: what is not UTF-8 is
// shown in ASCII, the other bytes as '?'.
json_t* text(const std::optional<std::string>& value) {
  if (!value) return json_null();
  if (json_t* json = json_stringn(value->data(), value->size())) return json;
  std::string ascii = *value;
  for (char& c : ascii)
    if (static_cast<unsigned char>(c) >= 0x80) c = '?';
  return json_stringn(ascii.data(), ascii.size());
}

std::optional<int> known_if(bool known, int value) {
  return known ? std::optional<int>(value) : std::nullopt;
}

json_t* number(const std::optional<int>& value) {
  return value ? json_integer(*value) : json_null();
}

json_t* policy_json(const PolicyReport& p) {
  return json_pack("{s:b, s:o, s:o, s:i, s:o, s:o}",
                   "ready", p.ready,
                   "heartbeat_age_s", number(p.heartbeat_age_s),
                   "status", p.status.empty() ? json_null() : text(p.status),
                   "backoff_s", p.backoff_s,
                   "resident_kib", number(p.resident_kib),
                   "memory_max_kib", number(p.memory_max_kib));
}

// The keys in the order of the file, a key and its value a line.
json_t* daemon_json(const Daemon& d) {
  json_t* json = json_pack("{s:o, s:b, s:o, s:s, s:i, s:i, s:s, s:o}",
                   "name", text(d.name),
                   "key", d.key,
                   "pid", number(known_if(d.pid > 0, d.pid)),
                   "state", state_name(d.state),
                   "starts", d.starts,
                   "restarts", d.restarts,
                   "since", d.since.c_str(),
                   "last_vanished", text(d.last_vanished));
  if (json != nullptr && d.policy) json_object_set_new(json, "policy", policy_json(*d.policy));
  return json;
}

json_t* clock_json(const std::optional<Clock>& clock) {
  if (!clock) return json_null();
  return json_pack("{s:o, s:s, s:o, s:s}",
                   "server", text(clock->server),
                   "result", clock->answered ? "answered" : "failed",
                   "offset", number(known_if(clock->answered, clock->offset)),
                   "time", clock->time.c_str());
}

json_t* snapshot_json(const Snapshot& s) {
  json_t* partition = s.booted ? json_pack("{s:o, s:o}", "booted", number(s.booted), "flag",
                                           number(s.partition_flag))
                               : json_null();
  std::optional<std::string> progress;
  if (s.update_progress)
    progress = _UpdateProgress2String(static_cast<_BL_UpdateProgressFlag>(*s.update_progress));
  json_t* daemons = json_array();
  for (const Daemon& d : s.daemons) json_array_append_new(daemons, daemon_json(d));
  return json_pack("{s:i, s:s, s:s, s:o, s:o, s:{s:o, s:o}, s:o, s:o,"
                   " s:o, s:o, s:o, s:o, s:o, s:s, s:o}",
                   "pid", s.pid,
                   "version", s.version.c_str(),
                   "phase", s.phase.c_str(),
                   "mode", number(s.mode),
                   "list", text(s.list),
                   "crashes", "current", number(s.current_crashes),
                              "total", number(s.total_crashes),
                   "boot_reason", number(s.boot_reason),
                   "partition", partition,
                   "update_progress", text(progress),
                   "clock", clock_json(s.clock),
                   "mcu_version", text(s.mcu_version),
                   "product_number", text(s.product_number),
                   "region", text(s.region),
                   "updated", now_text().c_str(),
                   "daemons", daemons);
}

void write_snapshot(Snapshot& s) {
  json_t* root = snapshot_json(s);
  char* dumped = root != nullptr ? json_dumps(root, JSON_INDENT(2)) : nullptr;
  json_decref(root);
  const char* path = board_path(BoardPath::StatusSnapshot);
  int written = kStateFileUnwritten;
  if (dumped != nullptr) {
    std::string file = std::string(dumped) + "\n";
    std::free(dumped);
    written = write_state_file(path, file.data(), file.size(), 0644);
  }
  // Said once when writing starts to fail; the next change tries again.
  if (written < 0 && !s.write_failed) log_line("status snapshot not written: ", path);
  s.write_failed = written < 0;
}

// Runs `change` on the snapshot; the file is rewritten when it reports a change.
template <typename Change>
void apply(Change change) {
  std::lock_guard<std::mutex> lock(guard);
  if (change(snapshot) && snapshot.writing) write_snapshot(snapshot);
}

template <typename Field, typename Value>
bool set(Field& field, const Value& value) {
  if (field == value) return false;
  field = value;
  return true;
}

// Whether any of the settings changed something: each is made before the call, where an ||
// would skip those after the first change.
template <typename... Changed>
bool any(Changed... changed) {
  return (changed || ...);
}

bool change_state(Daemon& d, DaemonState state) {
  if (d.state == state) return false;
  d.state = state;
  d.since = now_text();
  if (state == DaemonState::Vanished) d.last_vanished = d.since;
  if (state != DaemonState::Running && state != DaemonState::Stopping) d.pid = 0;
  return true;
}

// A list may name a daemon twice; pidof cannot tell them apart either.
template <typename Change>
bool each_named(Snapshot& s, const std::string& name, Change change) {
  bool changed = false;
  for (Daemon& d : s.daemons)
    if (d.name == name) changed |= change(d);
  return changed;
}

}  // namespace

void status_start(const char* version) {
  const char* setting = std::getenv("CUSTODO_STATUS");
  // A seed of our own: else the library reads one from /dev/urandom, through a descriptor that
  // is not close-on-exec.
  json_object_seed(static_cast<size_t>(getpid()) | 1);
  apply([&](Snapshot& s) {
    s.pid = getpid();
    s.version = version;
    s.phase = "start-up phase 0";
    s.writing = setting == nullptr || std::strcmp(setting, "0") != 0;
    return true;
  });
}

void status_phase(const std::string& phase) {
  apply([&](Snapshot& s) { return set(s.phase, phase); });
}

void status_mode(int mode) {
  apply([&](Snapshot& s) { return set(s.mode, known_if(mode >= 0, mode)); });
}

void status_crashes(int current, int total) {
  apply([&](Snapshot& s) {
    return any(set(s.current_crashes, current), set(s.total_crashes, total));
  });
}

void status_boot_reason(int word) {
  apply([&](Snapshot& s) { return set(s.boot_reason, word); });
}

void status_partition(int booted, int flag) {
  apply([&](Snapshot& s) { return any(set(s.booted, booted), set(s.partition_flag, flag)); });
}

void status_update_progress(int flag) {
  apply([&](Snapshot& s) { return set(s.update_progress, flag); });
}

void status_clock(const std::string& server, bool answered, int offset) {
  // The server's line as the list holds it, without its line end.
  Clock clock{server.substr(0, server.find_last_not_of("\r\n") + 1), answered, offset, now_text()};
  apply([&](Snapshot& s) {
    s.clock = clock;
    return true;
  });
}

void status_mcu_version(const std::string& version) {
  apply([&](Snapshot& s) { return set(s.mcu_version, version); });
}

void status_product_number(const std::string& pn) {
  apply([&](Snapshot& s) { return set(s.product_number, pn); });
}

void status_region(const std::string& region) {
  apply([&](Snapshot& s) { return set(s.region, region); });
}

void status_list(const std::string& path, const std::deque<ProcessInfo>& processes) {
  std::string now = now_text();
  apply([&](Snapshot& s) {
    s.list = path;
    s.daemons.clear();
    for (const ProcessInfo& rec : processes) {
      Daemon d;
      d.name = rec.Name;
      d.key = rec.KeyProc == 1;
      d.since = now;
      s.daemons.push_back(d);
    }
    return true;
  });
}

void status_pids(const std::deque<ProcessInfo>& processes) {
  apply([&](Snapshot& s) {
    bool changed = false;
    for (size_t i = 0; i < s.daemons.size() && i < processes.size(); ++i) {
      Daemon& d = s.daemons[i];
      int pid = processes[i].pid;
      if (pid >= 1) {
        changed |= any(change_state(d, DaemonState::Running), set(d.pid, pid));
      } else if (d.state == DaemonState::Running) {
        changed |= change_state(d, DaemonState::Vanished);
      }
    }
    return changed;
  });
}

void status_daemon_started(const std::string& name, bool by_check) {
  std::string now = now_text();
  apply([&](Snapshot& s) {
    return each_named(s, name, [&](Daemon& d) {
      d.state = DaemonState::Running;
      d.pid = 0;
      d.since = now;
      d.starts++;
      if (by_check) d.restarts++;
      return true;
    });
  });
}

void status_daemon(const std::string& name, DaemonState state) {
  apply([&](Snapshot& s) {
    return each_named(s, name, [&](Daemon& d) { return change_state(d, state); });
  });
}

void status_policy(const std::string& name, const PolicyReport& report) {
  apply([&](Snapshot& s) {
    return each_named(s, name, [&](Daemon& d) { return set(d.policy, std::optional<PolicyReport>(report)); });
  });
}

void status_all_stopped() {
  apply([&](Snapshot& s) {
    bool changed = false;
    for (Daemon& d : s.daemons) changed |= change_state(d, DaemonState::Stopped);
    return changed;
  });
}
