// The supervisor's log line: the millisecond clock in decimal, " tqwatchdog ", the message
// pieces one after the other, end of line. Each line is built whole and written to standard
// output with one write, so lines from different threads never mix.
#pragma once
#include <sstream>
#include <string>

#include "core/ms_clock.h"

void write_stdout(const std::string& text);

template <typename... Pieces>
void log_line(const Pieces&... pieces) {
  std::ostringstream line;
  line << get_cur_time_ms() << " tqwatchdog ";
  (line << ... << pieces);
  line << '\n';
  write_stdout(line.str());
}

// Output that is not a log line (printf formats), written the same way.
void print_raw(const char* format, ...) __attribute__((format(printf, 1, 2)));
