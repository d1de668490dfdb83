#include "sim/board/counter.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <thread>

#include "sim/board/board_clock.h"

namespace {

std::mutex state_mutex;
uint64_t base_ms = 0;        // the value at anchor_ms
uint64_t anchor_ms = 0;      // board_clock_ms() when base_ms was taken
bool frozen = false;

uint64_t* device = nullptr;  // the mapped counter file
std::atomic<bool> ticking{false};
std::thread ticker;

uint64_t value_locked() { return frozen ? base_ms : base_ms + (board_clock_ms() - anchor_ms); }

void publish_locked() {
  if (device != nullptr) __atomic_store_n(device, value_locked(), __ATOMIC_RELAXED);
}

void restart_locked(uint64_t ms, bool freeze) {
  base_ms = ms;
  anchor_ms = board_clock_ms();
  frozen = freeze;
  publish_locked();
}

void tick() {
  timespec next{};
  clock_gettime(CLOCK_MONOTONIC, &next);
  while (ticking.load(std::memory_order_relaxed)) {
    next.tv_nsec += 1000000;
    if (next.tv_nsec >= 1000000000) {
      next.tv_nsec -= 1000000000;
      ++next.tv_sec;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    std::lock_guard<std::mutex> lock(state_mutex);
    publish_locked();
  }
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
  if (device != nullptr) {
    ticking = true;
    ticker = std::thread(tick);
  }
  return true;
}

void counter_stop() {
  if (ticking.exchange(false)) ticker.join();
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
