#include "platform/group_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

// The directory as the installation made it, or made now (0755) on a board that has none.
bool socket_dir(const std::string& path, struct stat* dir) {
  if (mkdir(path.c_str(), 0755) == 0 && chmod(path.c_str(), 0755) < 0) return false;
  return stat(path.c_str(), dir) == 0;
}

bool fits(const std::string& path) {
  if (path.size() < sizeof(sockaddr_un{}.sun_path)) return true;
  errno = ENAMETOOLONG;
  return false;
}

}  // namespace

int bind_group_socket(int fd, const char* path) {
  std::string target = path;
  std::string parent = target.substr(0, target.rfind('/'));
  std::string own_dir = parent + "/.XXXXXX";
  struct stat dir;
  if (!fits(target) || !socket_dir(parent, &dir) || !fits(own_dir + "/s") || mkdtemp(&own_dir[0]) == nullptr)
    return -1;
  sockaddr_un temporary{};
  temporary.sun_family = AF_UNIX;
  (own_dir + "/s").copy(temporary.sun_path, own_dir.size() + 2);
  bool bound = bind(fd, reinterpret_cast<sockaddr*>(&temporary), sizeof temporary) == 0 &&
               (dir.st_gid == getegid() || chown(temporary.sun_path, static_cast<uid_t>(-1), dir.st_gid) == 0) &&
               chmod(temporary.sun_path, 0660) == 0 && rename(temporary.sun_path, path) == 0;
  int error = errno;
  unlink(temporary.sun_path);
  rmdir(own_dir.c_str());
  errno = error;
  return bound ? 0 : -1;
}
