#include "core/log_line.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

void write_stdout(const std::string& text) {
  const char* p = text.data();
  size_t left = text.size();
  while (left > 0) {
    ssize_t n = write(STDOUT_FILENO, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    p += n;
    left -= static_cast<size_t>(n);
  }
}

void print_raw(const char* format, ...) {
  char buffer[512];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  if (n > 0) write_stdout(std::string(buffer, std::min<size_t>(static_cast<size_t>(n), sizeof buffer - 1)));
}
