#include "sim/board/watchdog_device.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

#include "sim/common/sim_files.h"

namespace {

constexpr unsigned WDIOC_SETOPTIONS = 0x80045704;
constexpr unsigned WDIOC_KEEPALIVE = 0x80045705;
constexpr unsigned WDIOC_SETTIMEOUT = 0xC0045706;
constexpr unsigned WDIOC_SETFUNCCONFIG = 0xC004570B;  // the board driver's own request
constexpr unsigned kDefaultTimeout = 60;               // the driver's, until one is set

std::mutex state_mutex;
bool armed = false;
unsigned timeout_s = kDefaultTimeout;
uint64_t last_feed_ms = 0;
uint64_t next_handle = 1;
std::map<uint64_t, bool> magic_by_handle;  // the open handles of this boot

int changes = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

void record(const std::string& line) { sim::record(sim::kWatchdogLog, line); }

void changed() {
  uint64_t one = 1;
  ssize_t ignored = write(changes, &one, sizeof one);
  (void)ignored;
}

void feed_locked() { last_feed_ms = sim::board_clock_ms(); }

std::string printable(const char* data, size_t size) {
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    unsigned char c = static_cast<unsigned char>(data[i]);
    if (c > ' ' && c < 127) {
      text += static_cast<char>(c);
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      text += hex;
    }
  }
  return text;
}

bool read_int(const void* in, size_t in_size, int* value) {
  if (in == nullptr || in_size < sizeof(int)) return false;
  std::memcpy(value, in, sizeof(int));
  return true;
}

}  // namespace

uint64_t watchdog_open() {
  std::lock_guard<std::mutex> lock(state_mutex);
  uint64_t handle = next_handle++;
  magic_by_handle[handle] = false;
  armed = true;
  feed_locked();
  record("open");
  changed();
  return handle;
}

void watchdog_write(uint64_t handle, const char* data, size_t size) {
  std::lock_guard<std::mutex> lock(state_mutex);
  auto it = magic_by_handle.find(handle);
  if (it != magic_by_handle.end()) it->second = std::memchr(data, 'V', size) != nullptr;
  feed_locked();
  record("write " + printable(data, size));
}

int watchdog_ioctl(unsigned request, const void* in, size_t in_size, int* out, bool* answered) {
  std::lock_guard<std::mutex> lock(state_mutex);
  *answered = false;
  int value = 0;
  switch (request) {
    case WDIOC_SETTIMEOUT:
      if (!read_int(in, in_size, &value)) return EFAULT;
      record("settimeout " + std::to_string(value));
      if (value < 1) return EINVAL;
      timeout_s = static_cast<unsigned>(value);
      feed_locked();
      changed();
      *out = value;
      *answered = true;
      return 0;
    case WDIOC_SETFUNCCONFIG:
      if (!read_int(in, in_size, &value)) return EFAULT;
      record("funcconfig " + std::to_string(value));
      *out = value;
      *answered = true;
      return 0;
    case WDIOC_SETOPTIONS:
      // A read request to the kernel, so the options word never reaches the device.
      record("enable");
      armed = true;
      changed();
      return 0;
    case WDIOC_KEEPALIVE:
      record("keepalive");
      feed_locked();
      return 0;
    default: {
      char line[40];
      std::snprintf(line, sizeof line, "ioctl 0x%08X unknown", request);
      record(line);
      return ENOTTY;
    }
  }
}

void watchdog_release(uint64_t handle) {
  std::lock_guard<std::mutex> lock(state_mutex);
  auto it = magic_by_handle.find(handle);
  if (it == magic_by_handle.end()) return;  // opened before the last reboot
  bool magic = it->second;
  magic_by_handle.erase(it);
  if (!magic) {
    record("close armed");
  } else if (magic_by_handle.empty()) {
    armed = false;
    record("close disarmed");
  } else {
    record("close magic, still open elsewhere");
  }
}

void watchdog_new_boot() {
  // The kernel queues the closes of the ended boot's processes before their exit completes;
  // they arrive here at once unless something of the old boot still holds the device.
  for (int waited_ms = 0; waited_ms < 1000; waited_ms += 5) {
    {
      std::lock_guard<std::mutex> lock(state_mutex);
      if (magic_by_handle.empty()) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  std::lock_guard<std::mutex> lock(state_mutex);
  magic_by_handle.clear();
  armed = false;
  timeout_s = kDefaultTimeout;
}

bool watchdog_expired() {
  std::lock_guard<std::mutex> lock(state_mutex);
  if (!armed || sim::board_clock_ms() - last_feed_ms < timeout_s * 1000ull) return false;
  armed = false;
  record("reset after " + std::to_string(timeout_s) + " s without a feed");
  return true;
}

int watchdog_wait_ms() {
  std::lock_guard<std::mutex> lock(state_mutex);
  if (!armed) return -1;
  uint64_t deadline = last_feed_ms + timeout_s * 1000ull;
  uint64_t now = sim::board_clock_ms();
  uint64_t left = deadline > now ? (deadline - now + sim::timescale() - 1) / sim::timescale() : 0;
  return static_cast<int>(std::min<uint64_t>(left, 60000));
}

int watchdog_changes() { return changes; }

std::string watchdog_status() {
  std::lock_guard<std::mutex> lock(state_mutex);
  std::string text = armed ? "armed" : "disarmed";
  text += ", time-out " + std::to_string(timeout_s) + " s";
  uint64_t since_feed = sim::board_clock_ms() - last_feed_ms;
  if (armed) text += ", last feed " + std::to_string(since_feed) + " ms ago";
  text += ", " + std::to_string(magic_by_handle.size()) + " open";
  return text;
}
