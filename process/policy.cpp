#include "process/policy.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <vector>

#include "core/log_line.h"
#include "platform/board_time.h"
#include "process/notify_socket.h"
#include "process/policy_file.h"
#include "status/snapshot.h"

namespace {

constexpr int kChecksOverCap = 3;
constexpr int64_t kSteadyMs = 60 * 1000;  // up this long, a daemon restarts at once again
// Checks come a second apart: a restart is due at the check nearest its time.
constexpr int64_t kHalfCheckMs = 500;

struct Rule {
  DaemonPolicy policy;
  int64_t started_ms = 0;
  int64_t seen_ms = 0;  // restart-backoff daemons: last found running by a check
  int backoff_s = 0;
  bool restart_waits = false;
  int64_t restart_at_ms = 0;
  int checks_over_cap = 0;
  int64_t resident_bytes = -1;
  int aborted_pid = 0;  // the hung process that got SIGABRT
  int64_t kill_at_ms = 0;
};

std::vector<Rule> rules;  // the main thread's
bool notifying = false;   // the notification socket listens

Rule* rule_of(const std::string& name) {
  for (Rule& rule : rules)
    if (rule.policy.name == name) return &rule;
  return nullptr;
}

bool speaks(const DaemonPolicy& policy) { return policy.notify || policy.heartbeat_s != 0; }

// A name listed twice: the rules go with its first entry.
template <typename List>
auto entry_of(List& processes, const std::string& name) -> decltype(&processes.front()) {
  auto it = std::find_if(processes.begin(), processes.end(), [&](const ProcessInfo& rec) { return rec.Name == name; });
  return it == processes.end() ? nullptr : &*it;
}

// The kernel's own file in every board variant: pages resident, the second number.
int64_t resident_bytes(int pid) {
  std::string path = "/proc/" + std::to_string(pid) + "/statm";
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  char text[128];
  ssize_t size = read(fd, text, sizeof text - 1);
  close(fd);
  if (size <= 0) return -1;
  text[size] = '\0';
  char* rest = nullptr;
  std::strtoll(text, &rest, 10);
  return std::strtoll(rest, nullptr, 10) * sysconf(_SC_PAGESIZE);
}

void check_heartbeat(Rule& rule, const ProcessInfo& rec, int64_t now) {
  if (rec.pid < 1 || kill(rec.pid, 0) != 0) return;
  if (rule.aborted_pid == rec.pid) {
    // It had its kill time-out to end after SIGABRT, while the checks went on.
    if (now < rule.kill_at_ms) return;
    log_line("heartbeat: ", rec.Name, " still there ", rec.KillTimeout, " s after SIGABRT: SIGKILL");
    kill(rec.pid, SIGKILL);
    rule.kill_at_ms = INT64_MAX;
    return;
  }
  NotifyState heard = notify_state(rec.Name);
  int64_t age = heard.last_watchdog_ms == 0 ? -1 : now - heard.last_watchdog_ms;
  if (heard.pid != rec.pid || !(heard.trigger || age > rule.policy.heartbeat_s * int64_t{1000})) return;
  std::string last = age < 0 ? "none" : std::to_string(age) + " ms ago";
  log_line("heartbeat: ", rec.Name, heard.trigger ? " hung by its own word (WATCHDOG=trigger)" : " hung",
           ", last heartbeat ", last, ": SIGABRT");
  kill(rec.pid, SIGABRT);
  rule.aborted_pid = rec.pid;
  rule.kill_at_ms = now + rec.KillTimeout * int64_t{1000};
}

void check_memory(RobotProcessManagement& manager, Rule& rule, const ProcessInfo& rec) {
  rule.resident_bytes = rec.pid > 0 ? resident_bytes(rec.pid) : -1;
  bool over = rule.resident_bytes > 0 && static_cast<uint64_t>(rule.resident_bytes) > rule.policy.memory_max;
  rule.checks_over_cap = over ? rule.checks_over_cap + 1 : 0;
  if (rule.checks_over_cap < kChecksOverCap) return;
  rule.checks_over_cap = 0;
  log_line("memory-max: ", rec.Name, " resident ", rule.resident_bytes / 1024, " KiB, above its cap of ",
           rule.policy.memory_max / 1024, " KiB on ", kChecksOverCap, " checks in a row: stopped and restarted");
  manager.StopProcess(rec, KILL_WAIT);
}

// To the status snapshot, which is rewritten only when something in it changed.
void report_status(const Rule& rule) {
  PolicyReport report;
  if (notifying && speaks(rule.policy)) {
    NotifyState heard = notify_state(rule.policy.name);
    report.ready = heard.ready;
    if (heard.last_watchdog_ms != 0)
      report.heartbeat_age_s = static_cast<int>((board_monotonic_ms() - heard.last_watchdog_ms) / 1000);
    report.status = heard.status;
  }
  report.backoff_s = rule.backoff_s;
  if (rule.resident_bytes >= 0) report.resident_kib = static_cast<int>(rule.resident_bytes / 1024);
  if (rule.policy.memory_max != 0)
    report.memory_max_kib = static_cast<int>(std::min<uint64_t>(rule.policy.memory_max / 1024, INT_MAX));
  status_policy(rule.policy.name, report);
}

}  // namespace

void policy_load(const std::string& list_path, const std::deque<ProcessInfo>& processes) {
  rules.clear();
  std::vector<std::string> speakers;
  for (DaemonPolicy& policy : read_policy_file(list_path.substr(0, list_path.rfind('/') + 1) + kPolicyFileName,
                                               processes)) {
    if (speaks(policy)) speakers.push_back(policy.name);
    rules.push_back(Rule{policy});
  }
  // Read once, at start-up: the socket and its thread then stay for the life of the process.
  if (!speakers.empty() && notify_variable() == nullptr) notifying = notify_socket_start(speakers);
}

const char* policy_variable(const std::string& name) {
  Rule* rule = rule_of(name);
  return rule != nullptr && notifying && speaks(rule->policy) ? notify_variable() : nullptr;
}

void policy_started(const std::string& name) {
  if (Rule* rule = rule_of(name)) rule->started_ms = board_monotonic_ms();
}

bool policy_wait_ready(RobotProcessManagement& manager, const ProcessInfo& rec) {
  Rule* rule = rule_of(rec.Name);
  if (rule == nullptr || !rule->policy.notify || !notifying) return false;
  int64_t begin = board_monotonic_ms();
  if (notify_wait_ready(rec.Name, rec.WaitAfterStart * int64_t{1000}, [&] { return manager.PidOf(rec.Name.c_str()); }))
    log_line("notify: ", rec.Name, " ready after ", board_monotonic_ms() - begin, " ms: its wait after start ends");
  else
    log_line("notify: ", rec.Name, " not ready within its wait after start of ", rec.WaitAfterStart, " s");
  return true;
}

void policy_follow(const std::deque<ProcessInfo>& processes) {
  if (!notifying) return;
  for (Rule& rule : rules) {
    const ProcessInfo* rec = entry_of(processes, rule.policy.name);
    if (speaks(rule.policy)) notify_follow(rule.policy.name, rec == nullptr ? 0 : rec->pid);
  }
}

void policy_check(RobotProcessManagement& manager) {
  if (rules.empty()) return;
  if (notifying) notify_expire_strangers();
  int64_t now = board_monotonic_ms();
  for (Rule& rule : rules) {
    ProcessInfo* rec = entry_of(manager.processes, rule.policy.name);
    if (rec == nullptr) continue;
    if (rule.policy.backoff_limit_s != 0 && rec->pid > 0 && kill(rec->pid, 0) == 0) rule.seen_ms = now;
    if (rule.policy.heartbeat_s != 0 && notifying) check_heartbeat(rule, *rec, now);
    if (rule.policy.memory_max != 0) check_memory(manager, rule, *rec);
  }
  for (const Rule& rule : rules) report_status(rule);
}

RestartTurn policy_restart_turn(const std::string& name) {
  Rule* rule = rules.empty() ? nullptr : rule_of(name);
  if (rule == nullptr || !rule->restart_waits) return RESTART_AS_DESCRIBED;
  if (board_monotonic_ms() + kHalfCheckMs < rule->restart_at_ms) return RESTART_WAITS;
  rule->restart_waits = false;
  return RESTART_NOW;
}

bool policy_put_off_restart(const std::string& name) {
  Rule* rule = rules.empty() ? nullptr : rule_of(name);
  if (rule == nullptr || rule->policy.backoff_limit_s == 0) return false;
  int64_t now = board_monotonic_ms();
  int64_t up = now - rule->started_ms;
  int delay = up >= kSteadyMs ? 0 : std::min(std::max(rule->backoff_s * 2, 1), rule->policy.backoff_limit_s);
  if (delay != rule->backoff_s && delay == 0)
    log_line("restart-backoff: ", name, " ran ", up / 1000, " s: restarted at once again");
  else if (delay != rule->backoff_s)
    log_line("restart-backoff: ", name, " gone ", up, " ms after its start: restarts now wait ", delay, " s");
  rule->backoff_s = delay;
  // The wait counts from its end as near as the checks tell: the last check that found it
  // running, or its start.
  rule->restart_at_ms = std::max(rule->started_ms, rule->seen_ms) + delay * int64_t{1000};
  rule->restart_waits = delay != 0 && now + kHalfCheckMs < rule->restart_at_ms;
  return rule->restart_waits;
}
