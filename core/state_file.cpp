#include "core/state_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

int write_state_file(const char* path, const void* data, size_t size) {
  std::string temporary = std::string(path) + ".tmp";
  int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return kStateFileUnopened;
  bool written = write(fd, data, size) == static_cast<ssize_t>(size) && fsync(fd) == 0;
  if (close(fd) != 0 || !written || std::rename(temporary.c_str(), path) != 0) {
    unlink(temporary.c_str());
    return kStateFileUnwritten;
  }
  return static_cast<int>(size);
}
