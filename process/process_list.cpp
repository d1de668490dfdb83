#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/log_line.h"
#include "core/process_end.h"
#include "process/daemon_roles.h"
#include "process/policy.h"
#include "process/process_management.h"
#include "status/snapshot.h"

RobotProcessManagement ProcessManagement;

namespace {

// Takes the text before the first comma and erases it with the comma. Without a comma the
// whole rest is the field and nothing is erased, so a short line repeats its last field.
// Returns where the comma was found.
size_t cut_field(std::string& rest, std::string& field) {
  size_t comma = rest.find(',');
  field = rest.substr(0, comma);
  if (comma != std::string::npos) rest.erase(0, comma + 1);
  return comma;
}

int to_number(const std::string& text) {
  return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

// A time that is negative, or beyond an int (which would read as -1), would stall the start
// or the stop for ever.
int to_seconds(const std::string& text, const char* field, const std::string& name) {
  errno = 0;
  long value = std::strtol(text.c_str(), nullptr, 10);
  if (errno != ERANGE && value >= 0 && value <= INT_MAX) return static_cast<int>(value);
  log_line("InitialConfig: ", field, " ", text, " of ", name, " out of range, taken as 0");
  return 0;
}

ProcessInfo parse_record(std::string line) {
  ProcessInfo rec;
  std::string key_proc, kill_timeout;
  cut_field(line, rec.Name);
  cut_field(line, rec.Cmd);
  cut_field(line, key_proc);
  // WaitAfterStart is read from no more characters than KillTimeout has: lists on robots in
  // the field are written for this reading, so it stays.
  size_t kill_timeout_length = cut_field(line, kill_timeout);
  std::string wait_after_start = line.substr(0, kill_timeout_length);

  rec.KeyProc = to_number(key_proc);
  rec.KillTimeout = to_seconds(kill_timeout, "KillTimeout", rec.Name);
  rec.WaitAfterStart = to_seconds(wait_after_start, "WaitAfterStart", rec.Name);
  rec.pid = -1;
  return rec;
}

}  // namespace

void RobotProcessManagement::InitialConfig(const std::string& path) {
  processes.clear();

  FILE* file = std::fopen(path.c_str(), "re");
  if (file == nullptr) {
    log_line("InitialConfig: read config file failed ", path);
    end_process(0);
  }
  char* text = nullptr;
  size_t capacity = 0;
  for (ssize_t length; (length = getline(&text, &capacity, file)) >= 0;) {
    std::string line(text, static_cast<size_t>(length));
    if (!line.empty() && line.back() == '\n') line.pop_back();
    if (!line.empty() && line[0] == '#') continue;
    if (integrity_failed_ && daemon_role::needs_cloud_integrity(line)) {
      log_line("InitialConfig: integrity check failed, skip ", line);
      continue;
    }
    ProcessInfo rec = parse_record(line);
    log_line("Name:", rec.Name, " Cmd:", rec.Cmd, " KeyProc:", rec.KeyProc,
             " KillTimeout:", rec.KillTimeout, " WaitAfterStart:", rec.WaitAfterStart);
    processes.push_back(rec);
  }
  std::free(text);
  std::fclose(file);
  status_list(path, processes);
  policy_load(path, processes);
}
