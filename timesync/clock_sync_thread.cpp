#include "timesync/clock_sync_thread.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdint>

#include "core/log_line.h"
#include "core/threads.h"
#include "crash/crash_stat.h"
#include "ipc/messages.h"
#include "ipc/send.h"
#include "platform/board_time.h"
#include "platform/tqlog.h"
#include "process/process_management.h"
#include "timesync/calendar.h"
#include "timesync/ntp_query.h"

std::atomic<int> ntp_enable{1};

namespace {

pthread_t ntp_threads;

constexpr unsigned kRetrySeconds = 60;
constexpr unsigned kValidClockSeconds = 3600;
constexpr int kStatQuerySucceeded = 1;
constexpr int kStatQueryFailed = 2;
constexpr int kSucceededByte = 2;
constexpr int kFailedByte = 3;

bool thread_started = false;

struct tm board_local_time() {
  timeval now{};
  board_gettimeofday(&now, nullptr);
  return local_time(now.tv_sec);
}

void count_query(int byte, int stat_key) {
  gStatInfo[byte].fetch_add(1, std::memory_order_relaxed);  // wraps at 256
  tq_stat_int(kStatGroup, stat_key, 1);
}

// Once the board clock was valid before the query, an hour; until then, a minute.
unsigned pause_after_success(const struct tm& before) {
  if (clock_is_valid(before)) {
    log_line(before.tm_year, " current ap time:", calendar_string(before), " next try after ",
             kValidClockSeconds / 60, "min");
    return kValidClockSeconds;
  }
  log_line(before.tm_year, " current ap time:", calendar_string(before), " next try after 60s");
  return kRetrySeconds;
}

void notify_offset(int32_t network_time, int32_t offset) {
  log_line("notify chimer sync time to mcu");
  send_ipc_msg(MSG_SYNC_TIME_TO_MCU, &network_time, sizeof network_time);
  if (appbridge_alive.load(std::memory_order_relaxed) != 0) {
    log_line("notify AppBridge time offset");
    send_ipc_msg(MSG_TIME_OFFSET, &offset, sizeof offset);
  }
}

void* ntp_thread(void*) {
  log_line("ntp_thread start");
  maintain_initial_offset();
  while (ntp_enable.load(std::memory_order_relaxed) != 0) {
    struct tm before = board_local_time();
    int offset = 0;
    if (sync_time(&offset) == 0) {
      log_line("ntpserver no valid response, retry next 60s");
      count_query(kFailedByte, kStatQueryFailed);
      board_sleep(kRetrySeconds);
      continue;
    }
    count_query(kSucceededByte, kStatQuerySucceeded);
    int network_time = covert_offset(offset);
    log_line("ntp time: ", calendar_string(local_time(network_time)));
    unsigned pause = pause_after_success(before);
    if (offset != 0) notify_offset(network_time, offset);
    board_sleep(pause);
  }
  log_line("ntp_thread end");
  return nullptr;
}

}  // namespace

int create_ntp_thread(const std::string& dir) {
  read_config(dir.c_str());
  int result = start_thread(&ntp_threads, ntp_thread);
  thread_started = result == 0;
  return result;
}

void destroy_ntp_thread() {
  ntp_enable = 0;
  // Joining a thread that was never created is undefined: report it as no such thread.
  int result = thread_started ? pthread_join(ntp_threads, nullptr) : ESRCH;
  thread_started = false;
  if (result != 0) log_line("destroy_ntp_thread failed = ", result);
  log_line("destroy_ntp_thread succ = ", result);
}
