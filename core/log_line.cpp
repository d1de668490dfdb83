#include "core/log_line.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr char kTag[] = " tqwatchdog ";

// Writes the vector whole, going on after a partial write or an interruption.
void write_all(iovec* parts, int count) {
  while (count > 0) {
    ssize_t n = writev(STDOUT_FILENO, parts, std::min(count, IOV_MAX));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    auto done = static_cast<size_t>(n);
    while (count > 0 && done >= parts->iov_len) {
      done -= parts->iov_len;
      ++parts;
      --count;
    }
    if (count > 0) {
      parts->iov_base = static_cast<char*>(parts->iov_base) + done;
      parts->iov_len -= done;
    }
  }
}

}  // namespace

namespace log_detail {

void write_line(const Piece* pieces, size_t count) {
  iovec parts[kMostPieces + 2];
  int used = 0;
  auto add = [&](const char* data, size_t size) {
    if (size > 0) parts[used++] = iovec{const_cast<char*>(data), size};
  };
  add(pieces[0].data, pieces[0].size);
  add(kTag, sizeof kTag - 1);
  for (size_t i = 1; i < count; ++i) add(pieces[i].data, pieces[i].size);
  add("\n", 1);
  write_all(parts, used);
}

}  // namespace log_detail

void print_raw(const char* format, ...) {
  char buffer[512];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  if (n <= 0) return;
  iovec part{buffer, std::min<size_t>(static_cast<size_t>(n), sizeof buffer - 1)};
  write_all(&part, 1);
}
