#include "sim/common/sim_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/board_paths.h"

namespace sim {

std::string file(const char* relative) { return board_root() + "/" + relative; }

unsigned timescale() {
  static const unsigned k = [] {
    const char* text = std::getenv("CUSTODO_SIM_TIMESCALE");
    long v = text ? std::strtol(text, nullptr, 10) : 1;
    return v >= 1 ? static_cast<unsigned>(v) : 1u;
  }();
  return k;
}

uint64_t counter_ms() {
  int fd = open(board_path(BoardPath::Jiffies), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  uint64_t value = 0;
  if (pread(fd, &value, sizeof value, 0) != sizeof value) value = 0;
  close(fd);
  return value;
}

void record(const char* relative, const std::string& line) {
  std::string text = std::to_string(counter_ms()) + " " + line + "\n";
  int fd = open(file(relative).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  ssize_t ignored = write(fd, text.data(), text.size());
  (void)ignored;
  close(fd);
}

}  // namespace sim
