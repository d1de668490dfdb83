#include "sim/board/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

namespace {

int pipe_fds[2] = {-1, -1};
int log_fd = -1;
std::thread relay;

void write_all(int fd, const char* data, ssize_t size) {
  while (size > 0) {
    ssize_t done = write(fd, data, static_cast<size_t>(size));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return;  // a closed terminal or pipe: the log still gets it all
    data += done;
    size -= done;
  }
}

void pass_on() {
  char buffer[4096];
  for (;;) {
    ssize_t got = read(pipe_fds[0], buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return;
    write_all(log_fd, buffer, got);
    write_all(STDOUT_FILENO, buffer, got);
  }
}

}  // namespace

bool console_start(const std::string& log_path, std::string* error) {
  log_fd = open(log_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (log_fd < 0 || pipe2(pipe_fds, O_CLOEXEC) != 0) {
    *error = "cannot set up the console " + log_path + ": " + std::strerror(errno);
    return false;
  }
  relay = std::thread(pass_on);
  return true;
}

int console_writer() { return pipe_fds[1]; }

void console_stop() {
  if (pipe_fds[1] < 0) return;
  close(pipe_fds[1]);
  pipe_fds[1] = -1;
  relay.join();
  close(pipe_fds[0]);
  close(log_fd);
}
