#include "sim/board/control.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <thread>

#include "sim/board/board_fs.h"
#include "sim/board/boot.h"
#include "sim/board/command_line.h"
#include "sim/board/counter.h"
#include "sim/board/watchdog_device.h"
#include "sim/common/sim_files.h"

namespace {

int listener = -1;
int stop_pipe[2] = {-1, -1};
std::string socket_path;
std::thread server;

bool address(const std::string& path, sockaddr_un* addr) {
  *addr = sockaddr_un{};
  addr->sun_family = AF_UNIX;
  if (path.size() >= sizeof addr->sun_path) return false;
  std::memcpy(addr->sun_path, path.c_str(), path.size() + 1);
  return true;
}

std::string counter_answer() {
  return "ok " + std::to_string(counter_value()) + (counter_frozen() ? " frozen" : " running");
}

std::string status() {
  std::ostringstream text;
  text << "ok board running, boot " << current_boot() << ", init pid " << current_init() << "\n"
       << "counter " << counter_value() << (counter_frozen() ? " frozen" : " running") << "\n"
       << "watchdog " << watchdog_status() << "\n"
       << "stuck reads waiting " << stuck_waiting() << "\n";
  return text.str();
}

std::string answer(const std::string& request) {
  std::istringstream words(request);
  std::string verb, what, value;
  words >> verb >> what >> value;
  unsigned long long ms = 0;
  bool has_ms = !value.empty() && parse_number(value, sim::kCounterMax, &ms);
  if (verb == "counter" && what == "freeze" && value.empty()) {
    counter_freeze();
  } else if (verb == "counter" && what == "freeze" && has_ms) {
    counter_freeze_at(ms);
  } else if (verb == "counter" && what == "set" && has_ms) {
    counter_set(ms);
  } else if (verb == "counter" && what == "run") {
    counter_run();
  } else if (verb == "unstick") {
    int waiting = stuck_waiting();
    stuck_unstick();
    return "ok " + std::to_string(waiting) + " released";
  } else if (verb == "halt") {
    stuck_release_all();
    return "ok";
  } else if (verb == "status") {
    return status();
  } else {
    return "error unknown request: " + request;
  }
  return counter_answer();
}

void serve_one(int fd) {
  std::string request;
  char c = 0;
  while (request.size() < 256 && read(fd, &c, 1) == 1 && c != '\n') request += c;
  std::string reply = answer(request) + "\n";
  ssize_t ignored = write(fd, reply.data(), reply.size());
  (void)ignored;
  close(fd);
}

void serve() {
  pollfd fds[2] = {{listener, POLLIN, 0}, {stop_pipe[0], POLLIN, 0}};
  for (;;) {
    if (poll(fds, 2, -1) < 0 && errno != EINTR) return;
    if (fds[1].revents != 0) return;
    if (fds[0].revents & POLLIN) {
      int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      // A client that never sends must not stall the board's other clients.
      timeval patience{1, 0};
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
      serve_one(fd);
    }
  }
}

}  // namespace

bool control_start(const std::string& path, std::string* error) {
  sockaddr_un addr{};
  if (!address(path, &addr)) {
    *error = "control socket path too long: " + path;
    return false;
  }
  unlink(path.c_str());
  listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      listen(listener, 8) != 0 || pipe2(stop_pipe, O_CLOEXEC) != 0) {
    *error = "cannot serve the control socket " + path + ": " + std::strerror(errno);
    return false;
  }
  socket_path = path;
  server = std::thread(serve);
  return true;
}

void control_stop() {
  if (listener < 0) return;
  ssize_t ignored = write(stop_pipe[1], "x", 1);
  (void)ignored;
  server.join();
  close(listener);
  close(stop_pipe[0]);
  close(stop_pipe[1]);
  unlink(socket_path.c_str());
  listener = -1;
}

bool control_request(const std::string& request, std::string* reply) {
  sockaddr_un addr{};
  if (!address(sim::file(sim::kControlSocket), &addr)) return false;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    close(fd);
    return false;
  }
  std::string line = request + "\n";
  bool sent = write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  reply->clear();
  char buffer[512];
  ssize_t got = 0;
  while (sent && (got = read(fd, buffer, sizeof buffer)) > 0) reply->append(buffer, got);
  close(fd);
  while (!reply->empty() && reply->back() == '\n') reply->pop_back();
  return sent && !reply->empty();
}
