#include "core/system_mode.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/log_line.h"
#include "core/process_end.h"
#include "core/shell.h"
#include "device/mcu_link.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"
#include "platform/mculink.h"
#include "update/boot_flags.h"
#include "watchdog/hw_watchdog.h"

namespace {

constexpr int SYS_MODE_BIT = 3;
constexpr int SYS_MODE_AUTO_BIT = 4;
constexpr int SYS_MODE_MOBILITY_TEST = 5;
constexpr int SYS_MODE_REMOVE_CONF_A = 34;
constexpr int SYS_MODE_REMOVE_CONF_B = 66;
constexpr unsigned kNoFirmwareWaitSeconds = 3600;

[[noreturn]] void stop_feeding_and_exit(int status) {
  destroy_hw_wdog_thread();
  log_line("done...exit");
  end_process(status);
}

[[noreturn]] void run_self_test(const char* cmdline) {
  tq_system(cmdline);
  restore_partition_flag();
  log_line("destroy_hw_wdog_thread...");
  stop_feeding_and_exit(0);
}

void remove_user_settings() {
  const BoardPath kSettings[] = {BoardPath::QuomNetlinkConf, BoardPath::CleanParams,
                                 BoardPath::Schedules};
  for (BoardPath file : kSettings) {
    std::string cmdline = std::string("rm -rf ") + board_path(file);
    tq_system(cmdline.c_str());
  }
}

}  // namespace

int getsysmode() {
  int fd = open_mcu_link("init_uart failed");
  if (fd < 0) return -1;
  int mode = check_mcu_mode(fd);
  log_line("check_mcu_mode = ", mode);
  close_uart();
  return mode;
}

int is_mcu_ready() {
  FILE* marker = std::fopen(board_path(BoardPath::McuReady), "re");
  if (marker == nullptr) return 0;
  std::fclose(marker);
  return 1;
}

int set_mcu_ready() {
  FILE* marker = std::fopen(board_path(BoardPath::McuReady), "we");
  if (marker == nullptr) return 0;
  std::fclose(marker);
  return 1;
}

void check_mcu_readiness(int mode) {
  if (mode < 0) {
    if (is_mcu_ready() == 1) return;
    log_line("##mcu no firmware###");
    restore_partition_flag();
    board_sleep(kNoFirmwareWaitSeconds);
    log_line("timeout destroy_hw_wdog_thread...");
    stop_feeding_and_exit(-1);
  }
  if (is_mcu_ready() == 0 && set_mcu_ready() == 0) log_line("##set_mcu_ready failed###");
}

const char* process_list_for_mode(int mode) {
  switch (mode) {
    case SYS_MODE_BIT:
      log_line("##################### SYS_MODE_BIT ################");
      run_self_test("serialcheck -t AT#BIT% -pa -c &");
    case SYS_MODE_AUTO_BIT:
      log_line("##################### SYS_MODE_AUTO_BIT ################");
      run_self_test("serialcheck -t AT#AUTO_BIT% -pa -c &");
    case SYS_MODE_MOBILITY_TEST:
      log_line("##################### Mobility Test ################");
      return "ProcessListMT.conf";
    case SYS_MODE_REMOVE_CONF_A:
    case SYS_MODE_REMOVE_CONF_B:
      log_line("##################### remove conf file ################");
      remove_user_settings();
      return "ProcessList.conf";
    default:
      log_line("##################### Normal sysmode = ", mode, " ################");
      return "ProcessList.conf";
  }
}
