#include "core/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

int write_state_file(const char* path, const void* data, size_t size, mode_t mode) {
  std::string temporary = std::string(path) + ".tmp";
  int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (fd < 0) return -1;
  // The mode as asked, whatever the umask.
  bool written = fchmod(fd, mode) == 0 && write(fd, data, size) == static_cast<ssize_t>(size) &&
                 fsync(fd) == 0;
  if (close(fd) != 0 || !written || std::rename(temporary.c_str(), path) != 0) {
    unlink(temporary.c_str());
    return -1;
  }
  return static_cast<int>(size);
}
