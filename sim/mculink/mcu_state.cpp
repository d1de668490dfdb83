#include "sim/mculink/mcu_state.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/state_file.h"
#include "platform/board_time.h"
#include "sim/common/hex_text.h"
#include "sim/common/sim_files.h"
#include "sim/common/wallclock.h"

namespace sim {

namespace {

enum class Kind { Link, Number, Delay, Seconds, Text };

struct Key {
  const char* name;
  Kind kind;
  const char* fallback;  // nullptr: computed when the defaults are made
  size_t max_bytes;      // texts only
};

constexpr Key kKeys[] = {
    {"link", Kind::Link, "up", 0},
    {"mode", Kind::Number, "0", 0},
    {"error", Kind::Number, "0", 0},
    {"error_result", Kind::Number, "1", 0},
    {"utc", Kind::Seconds, nullptr, 0},
    {"utc_result", Kind::Number, "0", 0},
    {"pn", Kind::Text, "ABCDE0123456789", 32},
    {"pn_result", Kind::Number, "0", 0},
    {"version", Kind::Text, "MCU_FW_1.0.0", 64},
    {"version_result", Kind::Number, "0", 0},
    {"upgrade_result", Kind::Number, "0", 0},
    {"upgrade_delay", Kind::Delay, "0", 0},
    {"heartbeat_result", Kind::Number, "0", 0},
    {"cmd_result", Kind::Number, "0", 0},
};
constexpr const char* kAnchor = "utc_anchor_us";

const Key* find_key(const std::string& name) {
  for (const Key& key : kKeys)
    if (name == key.name) return &key;
  return nullptr;
}

std::string key_names() {
  std::string names;
  for (const Key& key : kKeys) names += std::string(" ") + key.name;
  return names;
}

bool whole_number(const std::string& text, long long min, long long max) {
  errno = 0;
  char* end = nullptr;
  long long v = std::strtoll(text.c_str(), &end, 10);
  return !text.empty() && *end == '\0' && errno != ERANGE && v >= min && v <= max;
}

bool decode(const std::string& text, std::string* bytes) {
  bytes->clear();
  std::string byte;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '\n' || c == '\r') return false;
    if (c != '\\') {
      bytes->push_back(c);
    } else if (i + 1 < text.size() && text[i + 1] == '\\') {
      bytes->push_back('\\');
      ++i;
    } else if (i + 3 < text.size() && text[i + 1] == 'x' &&
               from_hex(text.substr(i + 2, 2), &byte)) {
      *bytes += byte;
      i += 3;
    } else {
      return false;
    }
  }
  return true;
}

std::string check_value(const Key& key, const std::string& value) {
  std::string bytes;
  switch (key.kind) {
    case Kind::Link:
      if (value == "up" || value == "down") return "";
      return "link must be up or down";
    case Kind::Number:
      if (whole_number(value, INT_MIN, INT_MAX)) return "";
      return std::string(key.name) + " must be a whole number";
    case Kind::Delay:
      if (whole_number(value, 0, 24 * 3600)) return "";
      return std::string(key.name) + " must be seconds from 0 to a day";
    case Kind::Seconds:
      if (whole_number(value, 0, UINT32_MAX)) return "";
      return std::string(key.name) + " must be seconds from 0 to 4294967295";
    case Kind::Text:
      if (!decode(value, &bytes)) return std::string(key.name) + ": bad escape or line break";
      if (bytes.size() <= key.max_bytes) return "";
      return std::string(key.name) + " holds more than " + std::to_string(key.max_bytes) + " bytes";
  }
  return "";
}

McuState defaults() {
  McuState state;
  for (const Key& key : kKeys)
    if (key.fallback) state[key.name] = key.fallback;
  timeval now{};
  struct timezone zone {};
  board_gettimeofday(&now, &zone);
  state["utc"] = std::to_string(static_cast<int64_t>(now.tv_sec) - 60LL * zone.tz_minuteswest);
  state[kAnchor] = std::to_string(host_monotonic_us());
  return state;
}

int save(const McuState& state, std::string* error) {
  std::string path = file(kMcuState);
  mkdir(path.substr(0, path.rfind('/')).c_str(), 0755);
  std::string text;
  for (const Key& key : kKeys) text += std::string(key.name) + "=" + state.at(key.name) + "\n";
  text += std::string(kAnchor) + "=" + state.at(kAnchor) + "\n";
  if (write_state_file(path.c_str(), text.data(), text.size()) >= 0) return 0;
  if (error) *error = "cannot write " + path + ": " + std::strerror(errno);
  return -1;
}

}  // namespace

McuState mcu_state_load() {
  McuState state = defaults();
  FILE* in = std::fopen(file(kMcuState).c_str(), "re");
  if (in == nullptr) return state;
  char* text = nullptr;
  size_t capacity = 0;
  for (ssize_t length; (length = getline(&text, &capacity, in)) >= 0;) {
    std::string line(text, static_cast<size_t>(length));
    if (!line.empty() && line.back() == '\n') line.pop_back();
    size_t eq = line.find('=');
    if (eq == std::string::npos) continue;
    std::string name = line.substr(0, eq);
    if (find_key(name) || name == kAnchor) state[name] = line.substr(eq + 1);
  }
  std::free(text);
  std::fclose(in);
  return state;
}

int mcu_state_set(const std::vector<std::string>& assignments, std::string* error) {
  McuState state = mcu_state_load();
  for (const std::string& assignment : assignments) {
    size_t eq = assignment.find('=');
    const Key* key = eq == std::string::npos ? nullptr : find_key(assignment.substr(0, eq));
    if (key == nullptr) {
      if (error)
        *error = "expected key=value, a key among" + key_names() + ": '" + assignment + "'";
      return -1;
    }
    std::string value = assignment.substr(eq + 1);
    std::string why = check_value(*key, value);
    if (!why.empty()) {
      if (error) *error = why + ": '" + assignment + "'";
      return -1;
    }
    state[key->name] = value;
    if (key->kind == Kind::Seconds) state[kAnchor] = std::to_string(host_monotonic_us());
  }
  return save(state, error);
}

int mcu_state_reset(std::string* error) { return save(defaults(), error); }

long mcu_state_number(const McuState& state, const char* key) {
  auto it = state.find(key);
  return it == state.end() ? 0 : std::strtol(it->second.c_str(), nullptr, 10);
}

std::string mcu_state_text(const McuState& state, const char* key) {
  std::string bytes;
  auto it = state.find(key);
  if (it != state.end()) decode(it->second, &bytes);
  return bytes;
}

uint32_t mcu_clock_now(const McuState& state) {
  int64_t set_at = std::strtoll(state.at(kAnchor).c_str(), nullptr, 10);
  int64_t elapsed_us = std::max<int64_t>(0, host_monotonic_us() - set_at) * timescale();
  return static_cast<uint32_t>(std::strtoull(state.at("utc").c_str(), nullptr, 10) +
                               static_cast<uint64_t>(elapsed_us / 1000000));
}

std::string mcu_state_summary() {
  McuState state = mcu_state_load();
  std::string line;
  for (const Key& key : kKeys) {
    std::string value =
        key.kind == Kind::Seconds ? std::to_string(mcu_clock_now(state)) : state[key.name];
    line += (line.empty() ? "" : " ") + std::string(key.name) + "=" + value;
  }
  return line;
}

}  // namespace sim
