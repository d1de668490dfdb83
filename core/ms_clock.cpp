#include "core/ms_clock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "core/log_line.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"

// Set lazily without a lock: threads racing on the first call may map the counter twice,
// which is harmless.
static std::atomic<const uint64_t*> jiffies_cur{nullptr};

int init_jiffies_mmap() {
  int fd = open(board_path(BoardPath::Jiffies), O_RDONLY | O_CLOEXEC);
  if (fd < 1) {
    // The MCU serial driver offers the same counter.
    fd = open(board_path(BoardPath::UartMcu), O_RDONLY | O_CLOEXEC);
    if (fd < 1) {
      print_raw("%s:open uart mcu driver error: %s\n", "init_jiffies_mmap", std::strerror(errno));
      return -1;
    }
  }
  void* address = mmap(nullptr, sizeof(uint64_t), PROT_READ, MAP_SHARED | MAP_NORESERVE, fd, 0);
  if (address == nullptr || address == MAP_FAILED) {
    // A failed mapping is never published: readers would fault on it.
    print_raw("Can't mmap %s\n", std::strerror(errno));
    return -1;
  }
  jiffies_cur.store(static_cast<const uint64_t*>(address), std::memory_order_relaxed);
  close(fd);
  return 0;
}

uint64_t get_cur_time_ms() {
  const uint64_t* counter = jiffies_cur.load(std::memory_order_relaxed);
  if (counter == nullptr) {
    init_jiffies_mmap();
    counter = jiffies_cur.load(std::memory_order_relaxed);
    if (counter == nullptr) return 0;
  }
  return board_counter_ms(__atomic_load_n(counter, __ATOMIC_RELAXED));
}
