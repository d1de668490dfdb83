#include "core/liveness.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "core/log_line.h"
#include "platform/board_time.h"

namespace {

int64_t limit_ms = 0;  // 0: the rule is off
std::atomic<int64_t> last_progress_ms{0};
std::atomic<bool> waiting{false};

}  // namespace

void liveness_init() {
  const char* text = std::getenv("CUSTODO_LIVENESS_S");
  if (text == nullptr) return;
  char* end = nullptr;
  errno = 0;
  long seconds = std::strtol(text, &end, 10);
  if (*text == '\0' || *end != '\0' || errno == ERANGE || seconds < 1 || seconds > 86400) {
    log_line("CUSTODO_LIVENESS_S=", text, " is not 1 to 86400 seconds: liveness rule off");
    return;
  }
  limit_ms = seconds * 1000;
  note_progress();
  log_line("liveness rule: the watchdog is fed only while the main thread moves on within ",
           seconds, " s");
}

void note_progress() { last_progress_ms.store(board_monotonic_ms(), std::memory_order_relaxed); }

void described_wait(bool now_waiting) {
  // Progress first, published with the flag: a feeder that sees the wait over also sees the
  // time it ended, never the time it began.
  note_progress();
  waiting.store(now_waiting, std::memory_order_release);
}

bool main_thread_stalled() {
  if (limit_ms == 0 || waiting.load(std::memory_order_acquire)) return false;
  return board_monotonic_ms() - last_progress_ms.load(std::memory_order_relaxed) > limit_ms;
}
