#include <cstdio>

#include "core/log_line.h"
#include "status/snapshot.h"
#include "timesync/ntp_query.h"

std::vector<std::string> ntp_list;
int ntp_cnt = 0;

namespace {
constexpr size_t kPathBytes = 128;
constexpr size_t kCommandBytes = 128;
// A longer line is read as several entries.
constexpr int kPieceBytes = 1024;
}  // namespace

// Lines are taken as they stand, end of line included: the shell ignores it at the end of
// the query command, and an empty line becomes an entry of its own.
void read_config(const char* dir) {
  char path[kPathBytes];
  std::snprintf(path, sizeof path, "%s/%s", dir, "ntpserver.conf");
  FILE* file = std::fopen(path, "re");
  if (file == nullptr) {
    log_line("open config file failed: ", path, " use default config");
    return;
  }
  char piece[kPieceBytes];
  while (std::fgets(piece, sizeof piece, file) != nullptr) {
    if (piece[0] == '#') continue;
    ntp_list.emplace_back(piece);
    log_line("add ntp server: ", piece);
  }
  std::fclose(file);
}

int sync_time(int* offset) {
  // Without servers there is nobody to ask: a failed query, which the thread retries.
  if (ntp_list.empty()) {
    *offset = 0;
    return 0;
  }
  const std::string& server = ntp_list[static_cast<size_t>(ntp_cnt)];
  ntp_cnt = static_cast<int>((static_cast<size_t>(ntp_cnt) + 1) % ntp_list.size());
  char command[kCommandBytes];
  std::snprintf(command, sizeof command, "ntpdate -q %s", server.c_str());
  log_line("sync with server:", command);
  int result = ntpdate_query(command, offset);
  status_clock(server, result == 1, *offset);
  return result;
}
