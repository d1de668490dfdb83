#include "crash/boot_reason.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/board_paths.h"
#include "sim/mculink/mcu_state.h"
#include "tests/unit/captured_log.h"
#include "tests/unit/text_file.h"

namespace {

const char* word_file() { return board_path(BoardPath::BootReason); }

void mcu_error(const char* error, const char* result) {
  std::string why;
  ASSERT_EQ(sim::mcu_state_set({std::string("error=") + error, std::string("error_result=") + result}, &why), 0)
      << why;
}

}  // namespace

TEST(BootReason, MergesTheMcuReasonAndErrorOnce) {
  struct Row {
    const char* file;
    int mcu;
    const char* error;
    const char* error_result;
    int merged;
    const char* file_after;
    std::vector<std::string> log;
  };
  const Row rows[] = {
      {"3", 2, "5", "1", 328195, "328195",
       {"read boot reason = 3",
        "merge_boot_reason ap reason = 3 mcu reason = 2 mcu err = 5 merge = 328195"}},
      {"328195", 2, "5", "1", 328195, "328195",
       {"read boot reason = 328195", "boot reason already merged = 328195"}},
      {"7", -1, "5", "1", 7, "7",
       {"read boot reason = 7", "merge_boot_reason ap reason without mcu merge = 7"}},
      {"3", 0x1FF, "263", "1", 0x07FF03, "524035",
       {"read boot reason = 3",
        "merge_boot_reason ap reason = 3 mcu reason = 511 mcu err = 263 merge = 524035"}},
      {"3", 2, "5", "0", 515, "3", {"read boot reason = 3", "cannot read mcu err"}},
      {"", 2, "5", "1", 0, "", {"read /proc/belvane/boot_reason failed"}},
      {nullptr, 2, "5", "1", 0, nullptr, {"cannot open /proc/belvane/boot_reason"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file ? row.file : "(no file)");
    write_text(word_file(), row.file);
    mcu_error(row.error, row.error_result);
    int merged = -1;
    auto log = captured_log([&] { merged = merge_boot_reason(row.mcu); });
    EXPECT_EQ(merged, row.merged);
    EXPECT_EQ(log, row.log);
    if (row.file_after) {
      EXPECT_EQ(read_text(word_file()), row.file_after);
    }
  }
}

TEST(BootReason, CrashFlagTakesTheTopByte) {
  struct Row {
    const char* file;
    int flag;
    const char* file_after;
    const char* line;
  };
  const Row rows[] = {
      {"328195", 1, "17105411", "set crash flag to boot reason 17105411 flag = 1"},
      {"16777216", 0, "0", "set crash flag to boot reason 0 flag = 0"},
      {"-1", 0, "16777215", "set crash flag to boot reason 16777215 flag = 0"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    write_text(word_file(), row.file);
    auto log = captured_log([&] { set_crash_flag(row.flag); });
    EXPECT_EQ(log, std::vector<std::string>{row.line});
    EXPECT_EQ(read_text(word_file()), row.file_after);
  }
}
