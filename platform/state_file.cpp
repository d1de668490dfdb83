#include "platform/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The rename is durable only once the directory that holds the name is.
void sync_directory_of(const std::string& path) {
  size_t slash = path.rfind('/');
  std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

}  // namespace

int write_state_file(const char* path, const void* data, size_t size, mode_t mode) {
  // A name nobody can guess: some of these files live in a directory that everyone may write,
  // where a link planted under a fixed name would redirect the write.
  std::string temporary = std::string(path) + ".XXXXXX";
  int fd = mkostemp(&temporary[0], O_CLOEXEC);
  if (fd < 0) return kStateFileUnopened;
  // The mode as asked, whatever the umask.
  bool written = fchmod(fd, mode) == 0 && write(fd, data, size) == static_cast<ssize_t>(size) &&
                 fsync(fd) == 0;
  if (close(fd) != 0 || !written || std::rename(temporary.c_str(), path) != 0) {
    unlink(temporary.c_str());
    return kStateFileUnwritten;
  }
  sync_directory_of(path);
  return static_cast<int>(size);
}
