#include "crash/boot_reason.h"

#include <cstdio>
#include <cstdlib>

#include "core/log_line.h"
#include "platform/board_paths.h"
#include "platform/mculink.h"
#include "status/snapshot.h"

int g_bootreason = 0;

namespace {

enum class ReadResult { CannotOpen, Empty, Read };

// The file is shared with the kernel and other daemons: reopened on every use.
ReadResult read_boot_reason(int* word) {
  FILE* file = std::fopen(board_path(BoardPath::BootReason), "re");
  if (file == nullptr) return ReadResult::CannotOpen;
  char text[17] = {0};
  size_t count = std::fread(text, 1, 16, file);
  std::fclose(file);
  if (count == 0) return ReadResult::Empty;
  *word = static_cast<int>(std::strtol(text, nullptr, 10));
  return ReadResult::Read;
}

// Logs why the word could not be read; false then.
bool read_or_log(int* word) {
  switch (read_boot_reason(word)) {
    case ReadResult::CannotOpen:
      log_line("cannot open /proc/belvane/boot_reason");
      return false;
    case ReadResult::Empty:
      log_line("read /proc/belvane/boot_reason failed");
      return false;
    case ReadResult::Read:
      break;
  }
  return true;
}

int write_boot_reason(int word) {
  FILE* file = std::fopen(board_path(BoardPath::BootReason), "we");
  if (file == nullptr) {
    log_line("cannot open /proc/belvane/boot_reason for write");
    return -1;
  }
  int count = std::fprintf(file, "%d", word);
  if (count <= 0) log_line("write /proc/belvane/boot_reason error ", count);
  std::fclose(file);
  return count > 0 ? 0 : -1;
}

}  // namespace

int merge_boot_reason(int mcu) {
  int ap = 0;
  if (!read_or_log(&ap)) return 0;
  log_line("read boot reason = ", ap);
  if (ap > 255) {
    log_line("boot reason already merged = ", ap);
    return ap;
  }
  int word = ap & 0xFF;
  if (mcu < 0) {
    log_line("merge_boot_reason ap reason without mcu merge = ", word);
  } else {
    word |= (mcu & 0xFF) << 8;
    int error = 0;
    if (check_mcu_error(&error) <= 0) {
      log_line("cannot read mcu err");
      return word;
    }
    word |= (error & 0xFF) << 16;
    log_line("merge_boot_reason ap reason = ", ap, " mcu reason = ", mcu, " mcu err = ", error,
             " merge = ", word);
  }
  write_boot_reason(word);
  return word;
}

int set_crash_flag(int flag) {
  int word = 0;
  if (!read_or_log(&word)) return -1;
  word = (word & 0x00FFFFFF) | static_cast<int>(static_cast<unsigned>(flag) << 24);
  log_line("set crash flag to boot reason ", word, " flag = ", flag);
  int result = write_boot_reason(word);
  if (result == 0) status_boot_reason(word);
  return result;
}
