#include "sim/common/sim_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

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

namespace {
int64_t clock_us(clockid_t id) {
  timespec ts{};
  clock_gettime(id, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}
}  // namespace

int64_t host_monotonic_us() { return clock_us(CLOCK_MONOTONIC); }
int64_t host_realtime_us() { return clock_us(CLOCK_REALTIME); }

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

uint64_t board_clock_ms() {
  return static_cast<uint64_t>(host_monotonic_us()) * timescale() / 1000;
}

uint64_t counter_from_word(uint64_t word) {
  if ((word & kCounterRunning) == 0) return word;
  return board_clock_ms() + kCounterBias - (word & ~kCounterRunning);
}

uint64_t counter_word(uint64_t count, bool running) {
  return running ? kCounterRunning | (board_clock_ms() + kCounterBias - count) : count;
}

uint64_t counter_ms() {
  int fd = open(board_path(BoardPath::Jiffies), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  uint64_t value = 0;
  if (pread(fd, &value, sizeof value, 0) != sizeof value) value = 0;
  close(fd);
  return counter_from_word(value);
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
