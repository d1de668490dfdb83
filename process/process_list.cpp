#include <cstdlib>
#include <fstream>
#include <string>

#include "core/log_line.h"
#include "core/process_end.h"
#include "process/process_management.h"

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
  rec.KillTimeout = to_number(kill_timeout);
  rec.WaitAfterStart = to_number(wait_after_start);
  rec.pid = -1;
  return rec;
}

}  // namespace

void RobotProcessManagement::InitialConfig(const std::string& path) {
  processes.clear();

  std::ifstream file(path);
  if (!file.is_open()) {
    log_line("InitialConfig: read config file failed ", path);
    end_process(0);
  }
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] == '#') continue;
    if (integrity_failed_ &&
        (line.find("AppBridge") != std::string::npos || line.find("netmgrd") != std::string::npos)) {
      log_line("InitialConfig: integrity check failed, skip ", line);
      continue;
    }
    ProcessInfo rec = parse_record(line);
    log_line("Name:", rec.Name, " Cmd:", rec.Cmd, " KeyProc:", rec.KeyProc,
             " KillTimeout:", rec.KillTimeout, " WaitAfterStart:", rec.WaitAfterStart);
    processes.push_back(rec);
  }
}
