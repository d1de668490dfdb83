#include "core/single_instance.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "core/log_line.h"
#include "core/process_end.h"

int lockfile(int fd) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 0;
  return fcntl(fd, F_SETLK, &lock);
}

int already_running(const char* path) {
  int fd = open(path, O_RDWR | O_CREAT, 0644);
  if (fd < 0) {
    log_line("can't open ", path);
    end_process(1);
  }
  fcntl(fd, F_SETFD, fcntl(fd, F_GETFD) | FD_CLOEXEC);
  if (lockfile(fd) < 0) {
    int error = errno;
    if (error == EACCES || error == EAGAIN) {
      log_line("file:already locked");
      close(fd);
      return 1;
    }
    log_line("can't lock", path);
    end_process(1);
  }
  // The id with its terminating NUL byte, which readers expect; no newline.
  std::string pid = std::to_string(getpid());
  if (ftruncate(fd, 0) != 0 || write(fd, pid.c_str(), pid.size() + 1) < 0) {
    log_line("can't write ", path);
  }
  return 0;
}
