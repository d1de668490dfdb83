// The boot loader's flags, kept as variables of its U-Boot environment and reached through
// libubootenv with the layout named in the board's fw_env.config; redundant environments are
// handled by the library. The running partition comes from the kernel command line.
#include "platform/bootflag.h"

#include <fcntl.h>
#include <libuboot.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/board_paths.h"

namespace {

constexpr const char* kUpdateProgressVar = "update_progress_flag";

// Recursive: the supervisor's signal handler restores the partition flag, and the signal may
// arrive on a thread that is in the middle of another call.
std::recursive_mutex env_mutex;

const char* partition_var(int partition) {
  switch (partition) {
    case 1:
      return "partition_flag_1";
    case 2:
      return "partition_flag_2";
  }
  return nullptr;
}

// Decimal text that fills the whole string and fits an int.
int parse_int(const char* text, int* value) {
  errno = 0;
  char* end = nullptr;
  long v = std::strtol(text, &end, 10);
  if (end == text || *end != '\0') return -EINVAL;
  if (errno == ERANGE || v < INT_MIN || v > INT_MAX) return -ERANGE;
  *value = static_cast<int>(v);
  return 0;
}

// The environment is opened afresh on every call, so that a change made by the boot loader or
// another program is never hidden by a cached copy.
template <typename Use>
int with_env(Use use) {
  std::lock_guard<std::recursive_mutex> lock(env_mutex);
  uboot_ctx* ctx = nullptr;
  int result = libuboot_initialize(&ctx, nullptr);
  if (result < 0) return result;
  result = libuboot_read_config(ctx, board_path(BoardPath::FwEnvConfig));
  if (result >= 0) {
    result = libuboot_open(ctx);
    if (result >= 0) result = use(ctx);
    libuboot_close(ctx);
  }
  libuboot_exit(ctx);
  return result < 0 ? result : 0;
}

int get_var(const char* name, int* value) {
  if (value == nullptr) return -EINVAL;
  return with_env([&](uboot_ctx* ctx) {
    char* text = libuboot_get_env(ctx, name);
    if (text == nullptr) return -ENOENT;
    int result = parse_int(text, value);
    std::free(text);
    return result;
  });
}

int set_var(const char* name, int value) {
  std::string text = std::to_string(value);
  return with_env([&](uboot_ctx* ctx) {
    int result = libuboot_set_env(ctx, name, text.c_str());
    return result < 0 ? result : libuboot_env_store(ctx);
  });
}

std::string read_cmdline(int* error) {
  int fd = open(board_path(BoardPath::KernelCmdline), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    *error = -errno;
    return "";
  }
  std::string text;
  char buf[1024];
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0 || (n < 0 && errno == EINTR))
    if (n > 0) text.append(buf, static_cast<size_t>(n));
  *error = n < 0 ? -errno : 0;
  close(fd);
  return text;
}

}  // namespace

extern "C" {

int BlGetBootPartition(const char* key) {
  if (key == nullptr || *key == '\0') return -EINVAL;
  int error = 0;
  std::string cmdline = read_cmdline(&error);
  if (error < 0) return error;
  // As the kernel does with a repeated parameter, the last word with the key counts.
  const char* blanks = " \t\n";
  std::string value;
  bool found = false;
  for (size_t at = cmdline.find_first_not_of(blanks); at != std::string::npos;) {
    size_t end = cmdline.find_first_of(blanks, at);
    std::string word = cmdline.substr(at, end == std::string::npos ? end : end - at);
    if (word.compare(0, std::strlen(key), key) == 0) {
      value = word.substr(std::strlen(key));
      found = true;
    }
    at = end == std::string::npos ? end : cmdline.find_first_not_of(blanks, end);
  }
  if (!found) return -ENOENT;
  int partition = 0;
  int result = parse_int(value.c_str(), &partition);
  return result < 0 ? result : partition;
}

int BlGetPartitionFlag(int partition, int* flag) {
  const char* name = partition_var(partition);
  return name ? get_var(name, flag) : -EINVAL;
}

int BlSetPartitionFlag(int partition, int flag) {
  const char* name = partition_var(partition);
  return name ? set_var(name, flag) : -EINVAL;
}

int BlGetUpdateProgressFlag(_BL_UpdateProgressFlag* flag) {
  if (flag == nullptr) return -EINVAL;
  int value = 0;
  int result = get_var(kUpdateProgressVar, &value);
  if (result == 0) *flag = static_cast<_BL_UpdateProgressFlag>(value);
  return result;
}

int BlSetUpdateProgressFlag(_BL_UpdateProgressFlag flag) {
  return set_var(kUpdateProgressVar, static_cast<int>(flag));
}

}  // extern "C"
