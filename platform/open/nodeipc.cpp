// IPC between the board's daemons over Unix datagram sockets: every module receives on the
// socket named by its decimal module number in the IPC socket directory, and a packet goes to
// the socket of the module in the top byte of its id. A receiver's socket file gets mode 0660
// and the group of the socket directory, so that only root and the members of the group that
// the installation gives that directory can send to it.
#include "platform/nodeipc.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <string>

#include "platform/board_paths.h"
#include "platform/group_socket.h"

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

// The socket's group and mode are set before it takes the module's name (group_socket.h).
int bind_receive_socket() {
  std::lock_guard<std::mutex> lock(bind_mutex);
  if (receive_fd >= 0) return receive_fd;
  sockaddr_un addr;
  if (!socket_address(static_cast<unsigned>(nodeipc_module), &addr)) return -1;
  int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (bind_group_socket(fd, addr.sun_path) != 0) return close_failed(fd);
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
