#include "device/region.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log_line.h"
#include "core/process_end.h"
#include "core/shell.h"
#include "platform/board_paths.h"
#include "status/snapshot.h"

char g_region[128];

namespace {

constexpr size_t kPrefixLength = 5;
constexpr const char* kDefaultRegion = "prc";

// A table line: region code, ",", product number pattern. Without a comma the line is both.
bool region_matches(const std::string& line, const std::string& prefix, std::string* region) {
  log_line("ReadRegionConfig:  ", line);
  size_t comma = line.find(',');
  *region = line.substr(0, comma);
  std::string pattern = comma == std::string::npos ? line : line.substr(comma + 1);
  log_line("ReadRegionConfig: ", *region, " matching ", pattern, " with ", prefix);
  return pattern.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

bool find_region(FILE* table, const char* pn, std::string* region) {
  std::string prefix(pn, strnlen(pn, kPrefixLength));
  bool found = false;
  char* line = nullptr;
  size_t capacity = 0;
  ssize_t length;
  while (!found && (length = getline(&line, &capacity, table)) >= 0) {
    std::string text(line, static_cast<size_t>(length));
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text[0] == '#') continue;
    found = region_matches(text, prefix, region);
  }
  std::free(line);
  return found;
}

void RegionConfig(const std::string& table_path, char* pn) {
  FILE* table = std::fopen(table_path.c_str(), "re");
  if (table == nullptr) {
    // A system without its region table is not started at all.
    log_line("ReadRegionConfig: read config file failed ", table_path);
    end_process(0);
  }
  std::string region;
  bool found = find_region(table, pn, &region);
  std::fclose(table);
  if (!found) {
    log_line("ReadRegionConfig Failed Write Default Region");
    region = kDefaultRegion;
  }
  SaveRegion(region);
}

int SaveRegion(const std::string& region) {
  std::snprintf(g_region, sizeof g_region, "%s", region.c_str());
  status_region(g_region);
  // Logged as the shell command it stands for, whole; the line is written as it stands.
  const char* path = board_path(BoardPath::RegionFile);
  std::string command = std::string("echo \"location=") + g_region + "\" > " + path;
  return tq_system_publish(command.c_str(), path, std::string("location=") + g_region + "\n");
}
