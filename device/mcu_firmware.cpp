#include "device/mcu_firmware.h"

#include <cstdio>
#include <cstring>

#include "core/liveness.h"
#include "core/log_line.h"
#include "platform/state_file.h"
#include "device/mcu_link.h"
#include "platform/board_paths.h"
#include "platform/mculink.h"
#include "status/snapshot.h"

// Read by the MCU library.
int mculink_print_level = 0;

namespace {

constexpr int kMatchLineBytes = 256;
constexpr size_t kRecordBytes = 64;

// Kept open for the life of the process once an update was asked for, deliberately.
FILE* match_file = nullptr;

bool version_was_read(int result) { return result == 0 || result == -20 || result == -21; }

void publish_version(const char* text) {
  const char* path = board_path(BoardPath::McuVersion);
  int written = write_state_file(path, text, std::strlen(text));
  if (written == kStateFileUnopened)
    log_line("open mcuver file failed ", path);
  else if (written < 1)
    log_line("write mcuver file failed ", path);
}

}  // namespace

int update_mcu(const char* match_path) {
  FILE* file = std::fopen(match_path, "re");
  if (file == nullptr) {
    log_line("open config file failed: ", match_path);
    return -1;
  }
  char line[kMatchLineBytes];
  if (std::fgets(line, sizeof line, file) == nullptr) {
    std::fclose(file);
    return -1;
  }
  match_file = file;
  if (open_mcu_link("init_uart failed ", " abort update mcu firmware") < 0) return -1;
  log_line("start to update mcu firmware ", line);
  unsigned char outcome[kRecordBytes] = {};
  // Flashing takes as long as it takes: the supervisor waits on purpose.
  described_wait(true);
  int result = upgrade_mcu_if_not_match(line, outcome);
  described_wait(false);
  log_line("update mcu firmware done ", result);
  close_uart();
  return result;
}

int getmcuver() {
  if (open_mcu_link("init_uart failed") < 0) return -1;
  unsigned char record[kRecordBytes] = {};
  int result = check_version(record);
  if (version_was_read(result)) {
    const char* text = FwInfo2Str(record);
    if (text == nullptr) text = "";
    log_line("mcu FirwareVer:", text);
    publish_version(text);
    status_mcu_version(text);
  } else {
    log_line("get mcuver file failed ", result);
  }
  close_uart();
  return result;
}
