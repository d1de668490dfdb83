#include "crash/boot_reason.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/board_paths.h"
#include "sim/mculink/mcu_state.h"
#include "tests/unit/helpers.h"

namespace {

const char* word_file() { return board_path(BoardPath::BootReason); }

// The word in the file, the MCU's reason (-1: silent) and error (unreadable when its result is
// 0); the merged word, the file afterwards (nullptr: none) and the line that tells the decision.
TEST(BootReason, MergesTheMcuReasonAndErrorOnce) {
  const std::string merge = "merge_boot_reason ap reason = 3 mcu reason = ";
  const std::tuple<const char*, int, const char*, const char*, int, const char*, std::string> rows[] = {
      {"3", 2, "5", "1", 328195, "328195", merge + "2 mcu err = 5 merge = 328195"},
      {"328195", 2, "5", "1", 328195, "328195", "boot reason already merged = 328195"},
      {"7", -1, "5", "1", 7, "7", "merge_boot_reason ap reason without mcu merge = 7"},
      {"3", 0x1FF, "263", "1", 0x07FF03, "524035", merge + "511 mcu err = 263 merge = 524035"},
      {"3", 2, "5", "0", 515, "3", "cannot read mcu err"},
      {"", 2, "5", "1", 0, "", "read /proc/belvane/boot_reason failed"},
      {nullptr, 2, "5", "1", 0, nullptr, "cannot open /proc/belvane/boot_reason"},
  };
  for (const auto& [file, mcu, error, error_result, merged, file_after, line] : rows) {
    SCOPED_TRACE(file ? file : "(no file)");
    write_text(word_file(), file);
    std::string why;
    ASSERT_EQ(sim::mcu_state_set({"error=" + std::string(error), "error_result=" + std::string(error_result)},
                                 &why), 0);
    int result = -1;
    EXPECT_EQ(captured_log([&, mcu = mcu] { result = merge_boot_reason(mcu); }).back(), line);
    EXPECT_EQ(result, merged);
    EXPECT_EQ(read_text(word_file()), file_after ? file_after : "");
  }
}

TEST(BootReason, CrashFlagTakesTheTopByte) {
  const std::tuple<const char*, int, const char*> rows[] = {
      {"328195", 1, "17105411"}, {"16777216", 0, "0"}, {"-1", 0, "16777215"}};
  for (const auto& [file, flag, file_after] : rows) {
    write_text(word_file(), file);
    EXPECT_EQ(captured_log([flag = flag] { set_crash_flag(flag); }),
              std::vector<std::string>{std::string("set crash flag to boot reason ") + file_after +
                                       " flag = " + std::to_string(flag)});
    EXPECT_EQ(read_text(word_file()), file_after);
  }
}

}  // namespace
