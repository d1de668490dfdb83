// custodo-status: the supervisor's state as it last wrote it to its snapshot, as a table (the
// supervisor's line, then one line per daemon) or, with --json, as the snapshot itself. Exits 0
// when every listed daemon runs, 3 when one does not, 4 when no supervisor runs.
#include <jansson.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/board_paths.h"

namespace {

constexpr int kAllRunning = 0;
constexpr int kUsage = 2;
constexpr int kNotAllRunning = 3;
constexpr int kNoSupervisor = 4;

// By the name the kernel shows every user: the snapshot is read by users who may not signal
// the supervisor.
bool is_custodo(json_int_t pid) {
  if (pid < 1) return false;
  std::string path = "/proc/" + std::to_string(pid) + "/comm";
  FILE* file = std::fopen(path.c_str(), "re");
  if (file == nullptr) return false;
  char name[32] = {};
  bool found =
      std::fgets(name, sizeof name, file) != nullptr && std::strcmp(name, "custodo\n") == 0;
  std::fclose(file);
  return found;
}

std::string field(json_t* object, const char* key) {
  json_t* value = json_object_get(object, key);
  if (json_is_string(value)) return json_string_value(value);
  if (json_is_integer(value)) return std::to_string(json_integer_value(value));
  if (json_is_boolean(value)) return json_is_true(value) ? "yes" : "no";
  return "-";
}

void print_table(json_t* snapshot) {
  json_t* crashes = json_object_get(snapshot, "crashes");
  std::printf("custodo %s, pid %s, %s; list %s; crashes %s (%s in all); updated %s\n",
              field(snapshot, "version").c_str(), field(snapshot, "pid").c_str(),
              field(snapshot, "phase").c_str(), field(snapshot, "list").c_str(),
              field(crashes, "current").c_str(), field(crashes, "total").c_str(),
              field(snapshot, "updated").c_str());
  constexpr std::array<const char*, 6> kColumns = {"name", "key",      "state",
                                                   "pid",  "restarts", "since"};
  std::vector<std::array<std::string, 6>> rows = {
      {"NAME", "KEY", "STATE", "PID", "RESTARTS", "SINCE"}};
  size_t index;
  json_t* daemon;
  json_array_foreach(json_object_get(snapshot, "daemons"), index, daemon) {
    rows.emplace_back();
    for (size_t column = 0; column < kColumns.size(); ++column)
      rows.back()[column] = field(daemon, kColumns[column]);
  }
  std::array<int, 6> widths = {};
  for (const auto& row : rows)
    for (size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], static_cast<int>(row[column].size()));
  for (const auto& row : rows) {
    for (size_t column = 0; column + 1 < row.size(); ++column)
      std::printf("%-*s  ", widths[column], row[column].c_str());
    std::printf("%s\n", row.back().c_str());
  }
}

bool all_running(json_t* snapshot) {
  size_t index;
  json_t* daemon;
  json_array_foreach(json_object_get(snapshot, "daemons"), index, daemon) {
    if (field(daemon, "state") != "running") return false;
  }
  return true;
}

}  // namespace

int main(int argc, char* argv[]) {
  bool as_json = argc == 2 && std::strcmp(argv[1], "--json") == 0;
  if (argc > 2 || (argc == 2 && !as_json)) {
    std::fprintf(stderr, "usage: custodo-status [--json]\n");
    return kUsage;
  }
  std::string refusal = board_check();
  if (!refusal.empty()) {
    std::fprintf(stderr, "custodo-status: %s\n", refusal.c_str());
    return 1;
  }
  const char* path = board_path(BoardPath::StatusSnapshot);
  json_error_t error;
  json_t* snapshot = json_load_file(path, 0, &error);
  if (snapshot == nullptr) {
    std::fprintf(stderr, "custodo-status: no supervisor runs: %s\n", error.text);
    return kNoSupervisor;
  }
  json_int_t pid = json_integer_value(json_object_get(snapshot, "pid"));
  if (!is_custodo(pid)) {
    std::fprintf(stderr, "custodo-status: no supervisor runs: pid %lld of %s is gone\n",
                 static_cast<long long>(pid), path);
    json_decref(snapshot);
    return kNoSupervisor;
  }
  if (as_json) {
    json_dumpf(snapshot, stdout, JSON_INDENT(2));
    std::printf("\n");
  } else {
    print_table(snapshot);
  }
  int status = all_running(snapshot) ? kAllRunning : kNotAllRunning;
  json_decref(snapshot);
  return status;
}
