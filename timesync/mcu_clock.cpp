#include "timesync/mcu_clock.h"

#include <sys/time.h>

#include <cstdint>

#include "core/log_line.h"
#include "device/mcu_link.h"
#include "platform/board_time.h"
#include "platform/mculink.h"
#include "timesync/calendar.h"

namespace {
constexpr int kMcuSetTime = 185;
constexpr int kSecondsPerMinute = 60;
}  // namespace

// The MCU keeps local time; the board keeps UTC: board seconds = MCU seconds + 60 x
// minutes-west.
int sync_ap_with_mcu() {
  if (open_mcu_link("sync_ap_with_mcu init_uart failed") < 0) return -1;
  uint32_t mcu = 0;
  int result = get_utc(&mcu);
  if (result < 0) {
    log_line("cannot get_utc ret =", result);
    close_uart();
    return result;
  }
  timeval board{};
  struct timezone zone {};
  board_gettimeofday(&board, &zone);
  log_line("mcu time: ", calendar_string(utc_time(mcu)), " seconds:", mcu);
  log_line("ap  time: ", calendar_string(local_time(board.tv_sec)), " seconds:", board.tv_sec,
           " tz:", zone.tz_minuteswest);
  board.tv_sec = static_cast<time_t>(static_cast<int64_t>(mcu) +
                                     int64_t{kSecondsPerMinute} * zone.tz_minuteswest);
  // An MCU that lost its time never moves the board's clock.
  if (clock_is_valid(local_time(board.tv_sec))) {
    board_settimeofday(&board, nullptr);
    timeval now{};
    board_gettimeofday(&now, nullptr);
    log_line("sync ap with mcu time: ", calendar_string(local_time(now.tv_sec)));
  }
  close_uart();
  return result;
}

int sync_mcu_with_ap(int t) {
  int fd = open_mcu_link("sync_mcu_with_ap init_uart failed");
  if (fd < 0) return -1;
  uint32_t mcu_time = utc2mcutime(static_cast<uint32_t>(t));
  sent_cmd(kMcuSetTime, sizeof mcu_time, &mcu_time, 1);
  log_line("sync_mcu_with_ap ", t, "s");
  close_uart();
  return fd;
}
