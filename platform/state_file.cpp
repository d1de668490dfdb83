#include "platform/state_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// Deeper trees are left alone: the walk holds a descriptor and a stack frame per level, on
// threads with small stacks.
constexpr int kDeepestTree = 16;

// The rename is durable only once the directory that holds the name is.
void sync_directory_of(const std::string& path) {
  size_t slash = path.rfind('/');
  std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

// Removes the directory `name` in `parent` with everything in it. Its owner may change the
// tree meanwhile, so every step is taken relative to a directory already open and no link is
// ever followed: a link is removed like a file.
bool remove_tree(int parent, const char* name, int depth) {
  int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  int fd = depth < kDeepestTree ? openat(parent, name, flags) : -1;
  DIR* dir = fd >= 0 ? fdopendir(fd) : nullptr;
  if (dir == nullptr) {
    if (fd >= 0) close(fd);
    return false;
  }
  while (dirent* entry = readdir(dir)) {
    const char* child = entry->d_name;
    if (child[0] == '.' && (child[1] == '\0' || (child[1] == '.' && child[2] == '\0'))) continue;
    if (unlinkat(fd, child, 0) != 0 && errno == EISDIR) remove_tree(fd, child, depth + 1);
  }
  closedir(dir);
  return unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

// A rename replaces a file or a link in the way, but not a directory: whoever can write the
// directory of a published file could squat its name with one. It is removed, and the
// rename tried once more.
bool rename_over(const std::string& from, const char* to) {
  if (std::rename(from.c_str(), to) == 0) return true;
  if (errno != EISDIR) return false;
  return remove_tree(AT_FDCWD, to, 0) && std::rename(from.c_str(), to) == 0;
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
  if (close(fd) != 0 || !written || !rename_over(temporary, path)) {
    unlink(temporary.c_str());
    return kStateFileUnwritten;
  }
  sync_directory_of(path);
  return static_cast<int>(size);
}
