// The statistics calls, kept as one appended line per call in the board's statistics log;
// a collector on the board (or a test) reads the lines.
#include "platform/tqlog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "platform/board_paths.h"

namespace {

// One write with O_APPEND, so that lines from several threads or programs never mix.
int append_stat(const char* call, int group, int key, int value) {
  char line[96];
  int length = std::snprintf(line, sizeof line, "%s %d %d %d\n", call, group, key, value);
  int fd = open(board_path(BoardPath::StatLog), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  bool written = write(fd, line, static_cast<size_t>(length)) == length;
  return close(fd) == 0 && written ? 0 : -1;
}

}  // namespace

extern "C" {

int tq_stat_int(int group, int key, int value) {
  return append_stat("tq_stat_int", group, key, value);
}

int tq_overwrite_int(int group, int key, int value) {
  return append_stat("tq_overwrite_int", group, key, value);
}

}  // extern "C"
