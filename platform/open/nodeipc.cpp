// IPC between the board's daemons over Unix datagram sockets: every module receives on the
// socket named by its decimal module number in the IPC socket directory, and a packet goes to
// the socket of the module in the top byte of its id. A receiver's socket file gets mode 0660
// and the group of the socket directory, so that only root and the members of the group that
// the installation gives that directory can send to it.
#include "platform/nodeipc.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string>

#include "platform/board_paths.h"

namespace {

std::mutex bind_mutex;
int receive_fd = -1;  // bound once, then kept for the life of the process

bool set_address(sockaddr_un* addr, const std::string& path) {
  *addr = sockaddr_un{};
  addr->sun_family = AF_UNIX;
  if (path.size() >= sizeof addr->sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  path.copy(addr->sun_path, path.size());
  return true;
}

// The module's socket file.
bool socket_address(unsigned module, sockaddr_un* addr) {
  return set_address(addr, std::string(board_path(BoardPath::IpcSocketDir)) + "/" + std::to_string(module));
}

// Closes a descriptor after a failure without losing that failure's errno.
int close_failed(int fd) {
  int error = errno;
  close(fd);
  errno = error;
  return -1;
}

// The directory as the installation made it, or made now (0755) on a board that has none.
bool socket_dir(struct stat* dir) {
  const char* path = board_path(BoardPath::IpcSocketDir);
  if (mkdir(path, 0755) == 0 && chmod(path, 0755) < 0) return false;
  return stat(path, dir) == 0;
}

// The socket is bound in a directory of our own (0700, a name nobody can guess) and given its
// group and mode there, where nobody else can reach it or put a link in its place; then it is
// renamed onto the module's name (replacing a file left by an earlier run). So no sender ever
// finds it open to everyone, and the group and mode never land on another file.
int bind_receive_socket() {
  std::lock_guard<std::mutex> lock(bind_mutex);
  if (receive_fd >= 0) return receive_fd;
  struct stat dir;
  sockaddr_un addr;
  sockaddr_un temporary;
  std::string own_dir = std::string(board_path(BoardPath::IpcSocketDir)) + "/.XXXXXX";
  if (!socket_dir(&dir) || !socket_address(static_cast<unsigned>(nodeipc_module), &addr) ||
      mkdtemp(&own_dir[0]) == nullptr)
    return -1;
  int fd = -1;
  bool bound = set_address(&temporary, own_dir + "/s") &&
               (fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) >= 0 &&
               bind(fd, reinterpret_cast<sockaddr*>(&temporary), sizeof temporary) == 0 &&
               (dir.st_gid == getegid() || chown(temporary.sun_path, static_cast<uid_t>(-1), dir.st_gid) == 0) &&
               chmod(temporary.sun_path, 0660) == 0 && rename(temporary.sun_path, addr.sun_path) == 0;
  int error = errno;
  unlink(temporary.sun_path);
  rmdir(own_dir.c_str());
  errno = error;
  if (!bound) return fd >= 0 ? close_failed(fd) : -1;
  receive_fd = fd;
  return fd;
}

}  // namespace

extern "C" {

int RecvPacket(IpcPacket* packet) {
  if (packet == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int fd = bind_receive_socket();
  if (fd < 0) return -1;
  // A short datagram fills only its own bytes: the rest of the packet keeps what it held.
  for (;;) {
    ssize_t n = recv(fd, packet, sizeof *packet, 0);
    if (n >= 0) return static_cast<int>(n);
    if (errno != EINTR) return -1;
  }
}

int SendPacket(IpcPacket* packet, IpcSendOptions* options) {
  if (packet == nullptr) {
    errno = EINVAL;
    return -1;
  }
  sockaddr_un addr;
  if (!socket_address(packet->id >> 24, &addr)) return -1;
  // A socket per call keeps concurrent senders apart without a lock.
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  int flags = MSG_NOSIGNAL | (options != nullptr && options->option[0] != 0 ? MSG_DONTWAIT : 0);
  ssize_t n;
  do {
    n = sendto(fd, packet, sizeof *packet, flags, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  } while (n < 0 && errno == EINTR);
  if (n < 0) return close_failed(fd);
  close(fd);
  return 0;
}

}  // extern "C"
