#include "sim/common/sim_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/board_paths.h"

namespace sim {

std::string read_file(const std::string& path) {
  std::string text;
  FILE* in = std::fopen(path.c_str(), "rbe");
  if (in == nullptr) return text;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, in)) > 0;) text.append(buffer, n);
  std::fclose(in);
  return text;
}

std::string file(const char* relative) { return board_root() + "/" + relative; }

unsigned timescale() {
  static const unsigned k = [] {
    const char* text = std::getenv("CUSTODO_SIM_TIMESCALE");
    if (text == nullptr) return 1u;
    errno = 0;
    char* end = nullptr;
    long v = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || errno != 0 || v < 1 || v > long{kMaxTimescale}) {
      std::fprintf(stderr, "%s: CUSTODO_SIM_TIMESCALE must be a whole number from 1 to %u, "
                   "not '%s'\n", program_invocation_short_name, kMaxTimescale, text);
      std::exit(1);
    }
    return static_cast<unsigned>(v);
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
