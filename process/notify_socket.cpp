#include "process/notify_socket.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <string_view>

#include "core/log_line.h"
#include "core/threads.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"
#include "platform/group_socket.h"

namespace {

constexpr size_t kDatagramBytes = 4096;  // a longer one is no notification
constexpr size_t kHeldSenders = 16;

struct Tracked {
  std::string name;
  NotifyState state;
};

// A process that is no known daemon's, and what it said.
struct Stranger {
  NotifyState said;  // said.pid 0: a free place
  uint64_t messages = 0;
  int checks = 0;  // checks it has been held through
};

std::mutex lock;
std::vector<Tracked> tracked;  // fixed once the thread runs
Stranger strangers[kHeldSenders];

int socket_fd = -1;
int ready_fd = -1;  // counts the READY=1 that came
std::string variable;
std::atomic<uint64_t> dropped_strangers{0};
std::atomic<uint64_t> dropped_garbage{0};

void count_drop(std::atomic<uint64_t>* counter, uint64_t messages, const std::string& what) {
  if (counter->fetch_add(messages, std::memory_order_relaxed) == 0)
    log_line("notify: ", what, " dropped; later ones are counted, not logged");
}

void drop_stranger(Stranger* stranger) {
  count_drop(&dropped_strangers, stranger->messages,
             "a message from pid " + std::to_string(stranger->said.pid) + ", no daemon's process,");
  *stranger = Stranger{};
}

void apply(const Notification& note, NotifyState* state) {
  state->ready = state->ready || note.ready;
  if (note.watchdog) state->last_watchdog_ms = board_monotonic_ms();
  state->trigger = state->trigger || note.trigger;
  if (note.has_status) std::memcpy(state->status, note.status, kStatusBytes);
}

// Under the lock: where a process that is no daemon's is held, its own or a new place. When
// every place is taken, the one held longest gives way.
Stranger* place_of(int pid) {
  Stranger* free = nullptr;
  for (Stranger& stranger : strangers) {
    if (stranger.said.pid == pid) return &stranger;
    if (free == nullptr && stranger.said.pid == 0) free = &stranger;
  }
  if (free == nullptr) {
    free = std::max_element(std::begin(strangers), std::end(strangers),
                            [](const Stranger& a, const Stranger& b) { return a.checks < b.checks; });
    drop_stranger(free);
  }
  free->said.pid = pid;
  return free;
}

void take(int pid, const Notification& note) {
  {
    std::lock_guard<std::mutex> guard(lock);
    auto daemon = std::find_if(tracked.begin(), tracked.end(),
                               [pid](const Tracked& t) { return pid > 0 && t.state.pid == pid; });
    if (daemon != tracked.end()) {
      apply(note, &daemon->state);
    } else if (pid > 0) {
      Stranger* stranger = place_of(pid);
      apply(note, &stranger->said);
      stranger->messages++;
    } else {
      Stranger nobody;
      nobody.messages = 1;
      drop_stranger(&nobody);
    }
  }
  uint64_t one = 1;
  if (note.ready && write(ready_fd, &one, sizeof one) < 0) {
    // A counter that is full already wakes the waiter.
  }
}

// The sender's process id, 0 without credentials; descriptors passed along are closed.
int sender_of(msghdr* message) {
  int pid = 0;
  for (cmsghdr* c = CMSG_FIRSTHDR(message); c != nullptr; c = CMSG_NXTHDR(message, c)) {
    if (c->cmsg_level != SOL_SOCKET) continue;
    if (c->cmsg_type == SCM_CREDENTIALS) {
      ucred credentials;
      std::memcpy(&credentials, CMSG_DATA(c), sizeof credentials);
      pid = credentials.pid;
    } else if (c->cmsg_type == SCM_RIGHTS) {
      size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
      for (size_t i = 0; i < count; ++i) {
        int fd;
        std::memcpy(&fd, CMSG_DATA(c) + i * sizeof fd, sizeof fd);
        close(fd);
      }
    }
  }
  return pid;
}

void* receive(void*) {
  char data[kDatagramBytes];
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred)) + CMSG_SPACE(sizeof(int) * 4)];
  for (;;) {
    iovec io{data, sizeof data};
    msghdr message{};
    message.msg_iov = &io;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t size = recvmsg(socket_fd, &message, MSG_CMSG_CLOEXEC);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) {
      log_line("notify: cannot receive: ", std::strerror(errno), "; notifications are no longer read");
      return nullptr;
    }
    int pid = sender_of(&message);
    Notification note;
    if ((message.msg_flags & MSG_TRUNC) != 0 || !parse_notification(data, static_cast<size_t>(size), &note))
      count_drop(&dropped_garbage, 1, "a datagram that holds no notification");
    else
      take(pid, note);
  }
}

}  // namespace

bool parse_notification(const char* data, size_t size, Notification* out) {
  *out = Notification{};
  bool known = false;
  for (size_t begin = 0; begin < size;) {
    const char* end = static_cast<const char*>(std::memchr(data + begin, '\n', size - begin));
    std::string_view line(data + begin, end == nullptr ? size - begin : static_cast<size_t>(end - data) - begin);
    begin += line.size() + 1;
    if (line == "READY=1") {
      out->ready = known = true;
    } else if (line == "WATCHDOG=1") {
      out->watchdog = known = true;
    } else if (line == "WATCHDOG=trigger") {
      out->trigger = known = true;
    } else if (line.substr(0, 7) == "STATUS=") {
      std::memset(out->status, 0, kStatusBytes);
      line.copy(out->status, std::min(line.size() - 7, kStatusBytes - 1), 7);
      out->has_status = known = true;
    }
  }
  return known;
}

bool notify_socket_start(const std::vector<std::string>& names) {
  const char* path = board_path(BoardPath::NotifySocket);
  int on = 1;
  pthread_t thread;
  socket_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ready_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  for (const std::string& name : names) tracked.push_back(Tracked{name, {}});
  if (socket_fd < 0 || ready_fd < 0 || setsockopt(socket_fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0 ||
      bind_group_socket(socket_fd, path) != 0 || start_thread(&thread, receive) != 0) {
    log_line("notify: cannot listen on ", path, ": ", std::strerror(errno), "; notify and heartbeat are off");
    return false;
  }
  variable = std::string("NOTIFY_SOCKET=") + path;
  log_line("notify: listening on ", path);
  return true;
}

const char* notify_variable() { return variable.empty() ? nullptr : variable.c_str(); }

void notify_follow(const std::string& name, int pid) {
  std::lock_guard<std::mutex> guard(lock);
  auto daemon = std::find_if(tracked.begin(), tracked.end(), [&](const Tracked& t) { return t.name == name; });
  if (daemon == tracked.end() || daemon->state.pid == std::max(pid, 0)) return;
  daemon->state = NotifyState{};
  daemon->state.pid = std::max(pid, 0);
  for (Stranger& stranger : strangers) {
    if (pid < 1 || stranger.said.pid != pid) continue;
    daemon->state = stranger.said;
    stranger = Stranger{};
  }
}

void notify_expire_strangers() {
  std::lock_guard<std::mutex> guard(lock);
  for (Stranger& stranger : strangers)
    if (stranger.said.pid != 0 && ++stranger.checks >= 2) drop_stranger(&stranger);
}

NotifyState notify_state(const std::string& name) {
  std::lock_guard<std::mutex> guard(lock);
  for (const Tracked& daemon : tracked)
    if (daemon.name == name) return daemon.state;
  return NotifyState{};
}

bool notify_wait_ready(const std::string& name, int64_t ms, const std::function<int()>& pid_of) {
  int64_t end = board_monotonic_ms() + ms;
  for (;;) {
    int64_t left = std::max<int64_t>(end - board_monotonic_ms(), 0);
    if (board_wait_readable(ready_fd, static_cast<unsigned>(std::min<int64_t>(left, UINT_MAX))) == 0) return false;
    uint64_t count;
    if (read(ready_fd, &count, sizeof count) < 0) {
      // Drained by the wait before: nothing is lost.
    }
    int pid = pid_of();
    if (pid > 0) notify_follow(name, pid);
    if (notify_state(name).ready) return true;
    if (left == 0) return false;
  }
}

NotifyDrops notify_drops() {
  return {dropped_strangers.load(std::memory_order_relaxed), dropped_garbage.load(std::memory_order_relaxed)};
}
