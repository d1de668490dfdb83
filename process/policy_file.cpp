#include "process/policy_file.h"

#include <ini.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log_line.h"

namespace {

constexpr const char* kPrefix = "ProcessPolicy.conf: ";
constexpr long kMostSeconds = 86400;

struct Reading {
  const std::deque<ProcessInfo>* processes;
  std::vector<DaemonPolicy> found;        // in file order
  std::vector<std::string> not_listed;    // sections already logged
};

const ProcessInfo* listed(const std::deque<ProcessInfo>& processes, const std::string& name) {
  auto it = std::find_if(processes.begin(), processes.end(),
                         [&](const ProcessInfo& rec) { return rec.Name == name; });
  return it == processes.end() ? nullptr : &*it;
}

DaemonPolicy& policy_of(Reading* reading, const std::string& name) {
  for (DaemonPolicy& policy : reading->found)
    if (policy.name == name) return policy;
  reading->found.push_back(DaemonPolicy{name});
  return reading->found.back();
}

// Whole seconds from 1 to a day; 0 for anything else.
int parse_seconds(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  long value = std::strtol(text.c_str(), &end, 10);
  bool whole = !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) && *end == '\0';
  return whole && errno != ERANGE && value >= 1 && value <= kMostSeconds ? static_cast<int>(value) : 0;
}

void bad_value(const std::string& name, const std::string& key, const std::string& value, const char* wanted) {
  log_line(kPrefix, "[", name, "] ", key, " = ", value, " is not ", wanted, ", ignored");
}

int on_entry(void* user, const char* section, const char* key_text, const char* value_text) {
  Reading* reading = static_cast<Reading*>(user);
  std::string name = section, key = key_text, value = value_text;
  const ProcessInfo* rec = listed(*reading->processes, name);
  if (rec == nullptr) {
    std::vector<std::string>& logged = reading->not_listed;
    if (std::find(logged.begin(), logged.end(), name) == logged.end()) {
      logged.push_back(name);
      log_line(kPrefix, "[", name, "] is no daemon of the list, ignored");
    }
    return 1;
  }
  DaemonPolicy& policy = policy_of(reading, name);
  if (key == "notify") {
    if (value == "yes" || value == "no")
      policy.notify = value == "yes";
    else
      bad_value(name, key, value, "yes or no");
  } else if (key == "heartbeat" || key == "restart-backoff") {
    int seconds = parse_seconds(value);
    if (seconds == 0) {
      bad_value(name, key, value, "whole seconds from 1 to 86400");
    } else if (key == "heartbeat") {
      policy.heartbeat_s = seconds;
    } else if (rec->KeyProc == 1) {
      log_line(kPrefix, "[", name, "] restart-backoff ignored: losing a key daemon restarts all");
    } else {
      policy.backoff_limit_s = seconds;
    }
  } else if (key == "memory-max") {
    uint64_t size = parse_size(value);
    if (size == 0)
      bad_value(name, key, value, "a size such as 64M");
    else
      policy.memory_max = size;
  } else {
    log_line(kPrefix, "[", name, "] unknown key ", key, ", ignored");
  }
  // Never an error: inih would take the line for one that it could not read.
  return 1;
}

std::string summary(const DaemonPolicy& policy) {
  std::string text;
  auto add = [&text](const std::string& rule) { text += (text.empty() ? "" : ", ") + rule; };
  if (policy.notify) add("notify");
  if (policy.heartbeat_s != 0) add("heartbeat " + std::to_string(policy.heartbeat_s) + " s");
  if (policy.backoff_limit_s != 0) add("restart-backoff " + std::to_string(policy.backoff_limit_s) + " s");
  if (policy.memory_max != 0) add("memory-max " + std::to_string(policy.memory_max) + " bytes");
  return text;
}

}  // namespace

uint64_t parse_size(const std::string& text) {
  size_t digits = text.find_first_not_of("0123456789");
  if (digits == 0 || text.empty()) return 0;
  std::string unit = digits == std::string::npos ? "" : text.substr(digits);
  static const std::pair<const char*, int> kUnits[] = {{"", 0}, {"K", 10}, {"M", 20}, {"G", 30}};
  for (const auto& [suffix, shift] : kUnits) {
    if (unit != suffix) continue;
    errno = 0;
    unsigned long long value = std::strtoull(text.c_str(), nullptr, 10);
    if (errno == ERANGE || value > (UINT64_MAX >> shift)) return 0;
    return static_cast<uint64_t>(value) << shift;
  }
  return 0;
}

std::vector<DaemonPolicy> read_policy_file(const std::string& path, const std::deque<ProcessInfo>& processes) {
  FILE* file = std::fopen(path.c_str(), "re");
  if (file == nullptr) {
    if (errno != ENOENT) log_line(kPrefix, "cannot read ", path, ": ", std::strerror(errno));
    return {};
  }
  // The comments of the sample file stand after the values too, and a line holds one key:
  // Debian's inih takes these settings at run time.
  static char comment_prefixes[] = ";#";
  ini_inline_comment_prefixes = comment_prefixes;
  ini_allow_multiline = false;
  Reading reading{&processes, {}, {}};
  int first_bad_line = ini_parse_file(file, on_entry, &reading);
  std::fclose(file);
  if (first_bad_line > 0)
    log_line(kPrefix, "line ", first_bad_line, " is no section, key or comment: ignored, as is any such line after it");

  std::vector<DaemonPolicy> kept;
  for (const ProcessInfo& rec : processes) {
    auto it = std::find_if(reading.found.begin(), reading.found.end(),
                           [&](const DaemonPolicy& policy) { return policy.name == rec.Name; });
    if (it == reading.found.end() || summary(*it).empty()) continue;
    log_line(kPrefix, it->name, ": ", summary(*it));
    kept.push_back(*it);
    reading.found.erase(it);
  }
  return kept;
}
