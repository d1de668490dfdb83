#include "core/single_instance.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include "core/log_line.h"
#include "core/process_end.h"

namespace {

std::string program_of(pid_t pid) {
  char path[PATH_MAX] = {};
  std::string link = "/proc/" + std::to_string(pid) + "/exe";
  ssize_t length = readlink(link.c_str(), path, sizeof path - 1);
  return length > 0 ? std::string(path, static_cast<size_t>(length)) : "";
}

// Only a running Custodo, of our own user, may keep us from starting. Any other holder of the
// lock (a reader of the world-readable file, say) is not one.
bool held_by_custodo(int fd) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(fd, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK || lock.l_pid <= 0) return false;
  struct stat holder;
  std::string proc = "/proc/" + std::to_string(lock.l_pid);
  return stat(proc.c_str(), &holder) == 0 && holder.st_uid == geteuid() &&
         program_of(lock.l_pid) == program_of(getpid());
}

// Another user's file, or anything but a plain file, is not reused.
bool is_ours(int fd) {
  struct stat st;
  return fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid();
}

// A new file, locked before it takes the pid file's name: nobody can lock it first.
int replace_pid_file(const char* path) {
  std::string temporary = std::string(path) + ".XXXXXX";
  int fd = mkostemp(&temporary[0], O_CLOEXEC);
  if (fd < 0) return -1;
  if (fchmod(fd, 0644) != 0 || lockfile(fd) != 0 || rename(temporary.c_str(), path) != 0) {
    unlink(temporary.c_str());
    close(fd);
    return -1;
  }
  return fd;
}

bool write_pid(int fd) {
  // The id with its terminating NUL byte, which readers expect; no newline.
  std::string pid = std::to_string(getpid());
  return ftruncate(fd, 0) == 0 &&
         pwrite(fd, pid.c_str(), pid.size() + 1, 0) == static_cast<ssize_t>(pid.size() + 1);
}

}  // namespace

int lockfile(int fd) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 0;
  return fcntl(fd, F_SETLK, &lock);
}

int already_running(const char* path) {
  int fd = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (fd < 0 && errno != ELOOP) {
    log_line("can't open ", path);
    end_process(1);
  }
  if (fd >= 0 && is_ours(fd)) {
    if (lockfile(fd) == 0) {
      if (!write_pid(fd)) log_line("can't write ", path);
      return 0;
    }
    if (errno != EACCES && errno != EAGAIN) {
      log_line("can't lock", path);
      end_process(1);
    }
    if (held_by_custodo(fd)) {
      log_line("file:already locked");
      close(fd);
      return 1;
    }
  }
  // A link, another user's file, or a lock held by what is no Custodo: a fresh file takes the
  // name.
  if (fd >= 0) close(fd);
  log_line("pid file ", path, " is not a running custodo's: replaced");
  fd = replace_pid_file(path);
  if (fd < 0) {
    log_line("can't lock", path);
    end_process(1);
  }
  if (!write_pid(fd)) log_line("can't write ", path);
  return 0;
}
