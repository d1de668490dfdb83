#include "process/memory_log.h"

#include <dirent.h>

#include <cstdio>
#include <cstring>

#include "core/log_line.h"

constexpr const char* kMemoryLog = "./MemoryLog.txt";

std::string memory_block(const proc_info_st& info) {
  std::string block;
  if (!info.pid.empty()) block += "PID: " + info.pid + "\n";
  if (!info.name.empty()) block += "Name: " + info.name + "\n";
  block += info.memory.empty() ? "No Memory Info\n" : "Memory: " + info.memory + "\n";
  return block + "\n";
}

void read_proc(proc_info_st* info, const char* pid) {
  std::string path = std::string("/proc") + "/" + pid + "/" + "status";
  FILE* in = std::fopen(path.c_str(), "re");
  if (in == nullptr) {
    log_line("read ", path, " file fail!");
    return;
  }
  // Lines longer than the buffer are read in pieces, each taken as a line of its own.
  char line[1024];
  // Reused from line to line: a key without a value keeps the previous line's value.
  std::string key, value;
  while (std::fgets(line, sizeof line, in) != nullptr) {
    char* save = nullptr;
    if (char* word = strtok_r(line, " \t\n\r\f\v", &save)) {
      key = word;
      if ((word = strtok_r(nullptr, " \t\n\r\f\v", &save)) != nullptr) value = word;
    }
    if (key == "Name:")
      info->name = value;
    else if (key == "Pid:")
      info->pid = value;
    else if (key == "VmRSS:")
      info->memory = value;
  }
  std::fclose(in);
}

void proceed_log_recording() {
  DIR* proc = opendir("/proc");
  if (proc == nullptr) {
    log_line("Monitor: CANNOT read /proc");
    return;
  }
  FILE* out = std::fopen(kMemoryLog, "we");
  while (dirent* entry = readdir(proc)) {
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    proc_info_st info;
    read_proc(&info, entry->d_name);
    if (out != nullptr) {
      std::fputs(memory_block(info).c_str(), out);
      std::fflush(out);
    }
  }
  closedir(proc);
  if (out != nullptr) std::fclose(out);
}
