// What the unit tests share: the scratch board every test runs on (tests/common/scratch_board.h),
// its files, and the supervisor's log lines.
#pragma once
#include <functional>
#include <string>
#include <vector>

// The file's text; "" when it cannot be read.
std::string read_text(const std::string& path);

// Replaces the file's text; nullptr removes the file.
void write_text(const std::string& path, const char* text);

// The lines written to standard output while `code` ran (the supervisor's log lines go straight
// to fd 1), the "<ms> tqwatchdog " prefix of log lines removed.
std::vector<std::string> captured_log(const std::function<void()>& code);
