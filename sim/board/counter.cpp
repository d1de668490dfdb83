#include "sim/board/counter.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "sim/common/sim_files.h"

namespace {

std::mutex state_mutex;
uint64_t base_ms = 0;        // the value at anchor_ms
uint64_t anchor_ms = 0;      // sim::board_clock_ms() when base_ms was taken
bool frozen = false;

uint64_t* device = nullptr;  // the mapped counter file

uint64_t value_locked() { return frozen ? base_ms : base_ms + (sim::board_clock_ms() - anchor_ms); }

// Stored only when the counter is frozen, set or started: readers compute the running count.
void publish_locked(bool running) {
  if (device == nullptr) return;
  __atomic_store_n(device, sim::counter_word(value_locked(), running), __ATOMIC_RELAXED);
}

void restart_locked(uint64_t ms, bool freeze) {
  base_ms = ms;
  anchor_ms = sim::board_clock_ms();
  frozen = freeze;
  publish_locked(!freeze);
}

}  // namespace

bool counter_start(const std::string& path, bool with_device, std::string* error) {
  if (with_device) {
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || ftruncate(fd, sizeof(uint64_t)) != 0) {
      *error = "cannot open the counter " + path + ": " + std::strerror(errno);
      if (fd >= 0) close(fd);
      return false;
    }
    void* map = mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (map == MAP_FAILED) {
      *error = "cannot map the counter " + path + ": " + std::strerror(errno);
      return false;
    }
    device = static_cast<uint64_t*>(map);
  }
  counter_boot();
  return true;
}

void counter_stop() {
  std::lock_guard<std::mutex> lock(state_mutex);
  // Powered off, the counter stands.
  publish_locked(false);
  if (device != nullptr) munmap(device, sizeof(uint64_t));
  device = nullptr;
}
void counter_boot() {
  std::lock_guard<std::mutex> lock(state_mutex);
  restart_locked(0, false);
}

void counter_freeze() {
  std::lock_guard<std::mutex> lock(state_mutex);
  restart_locked(value_locked(), true);
}

void counter_freeze_at(uint64_t ms) {
  std::lock_guard<std::mutex> lock(state_mutex);
  restart_locked(ms, true);
}

void counter_set(uint64_t ms) {
  std::lock_guard<std::mutex> lock(state_mutex);
  restart_locked(ms, false);
}

void counter_run() {
  std::lock_guard<std::mutex> lock(state_mutex);
  restart_locked(value_locked(), false);
}

uint64_t counter_value() {
  std::lock_guard<std::mutex> lock(state_mutex);
  return value_locked();
}

bool counter_frozen() {
  std::lock_guard<std::mutex> lock(state_mutex);
  return frozen;
}
