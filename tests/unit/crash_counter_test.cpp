#include "crash/crash_counter.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <tuple>
#include <utility>

#include "platform/board_paths.h"
#include "tests/unit/helpers.h"

namespace {

const char* counter_file() { return board_path(BoardPath::FailureCount); }

}  // namespace

TEST(CrashCounter, DecodesAddsAndClears) {
  // The file (nullptr: none), the total and current counts read from it, the file after a crash
  // is added, and the line that tells it.
  const std::tuple<const char*, int, int, const char*, const char*> rows[] = {
      {nullptr, 0, 0, "1", "add_crash_time total = 1 value = 1"},
      {"258", 7, 2, "259", "add_crash_time total = 8 value = 259"},
      {"4", 4, 4, "256", "add_crash_time total = 5 value = 256"},
      {"514", 12, 2, "515", "add_crash_time total = 13 value = 515"},
      {"300", 49, 44, "2560", "add_crash_time total = 50 value = 2560"},
      {"", 0, 0, "1", "add_crash_time total = 1 value = 1"},
      {" 7junk", 7, 7, "259", "add_crash_time total = 8 value = 259"},
      {"2147483647", 41943290, 255, "2147483396", "add_crash_time total = 41943039 value = 2147483396"},
  };
  for (const auto& [file, total, current, after_add, add_line] : rows) {
    SCOPED_TRACE(file ? file : "(no file)");
    write_text(counter_file(), file);
    EXPECT_EQ(std::make_pair(get_total_crash(), get_current_crash()), std::make_pair(total, current));
    EXPECT_EQ(captured_log(add_crash_time), std::vector<std::string>{add_line});
    EXPECT_EQ(read_text(counter_file()), after_add);
  }
  // No count: no wait at start, and the crash reboot is reached.
  for (const char* text : {"-1", "3288195195", "99999999999999999999", "-2147483648"}) {
    write_text(counter_file(), text);
    EXPECT_EQ(captured_log([] { EXPECT_EQ(get_current_crash(), 0); }),
              std::vector<std::string>{"read failure_count: not a crash count: " +
                                       std::string(text).substr(0, 15) + ", taken as 0"});
  }
  write_text(counter_file(), "258");
  auto log = captured_log([] { EXPECT_EQ(clear_crash_time(), 0); });
  EXPECT_EQ(log.front(), std::string("tq_system: rm -rf ") + counter_file());
  EXPECT_EQ(get_total_crash(), 0);
}

TEST(CrashCounter, QuietPeriodComesFromTheEnvironment) {
  // Read as strtol reads it, but a number past the int range is held at its end.
  const std::pair<const char*, int> rows[] = {
      {nullptr, 600}, {"30", 30}, {"x", 0}, {" -1min", -1},
      {"99999999999", INT_MAX}, {"-99999999999999999999", INT_MIN},
  };
  for (const auto& [text, minutes] : rows) {
    text ? setenv("CRASH_IGNORE_MIN", text, 1) : unsetenv("CRASH_IGNORE_MIN");
    EXPECT_EQ(get_crash_ignore_time(), minutes) << (text ? text : "(unset)");
  }
  unsetenv("CRASH_IGNORE_MIN");
}
