// Custodo, the process supervisor of the robot's application board: started once by the init
// system, it starts the robot's daemons, watches them and restarts them, and stops them in order.
#include <malloc.h>
#include <sys/mman.h>

#include <cstdio>
#include <string>

#include "core/event_queue.h"
#include "core/liveness.h"
#include "core/log_line.h"
#include "core/main_loop.h"
#include "core/single_instance.h"
#include "core/stop.h"
#include "core/system_mode.h"
#include "core/timer.h"
#include "update/update_paths.h"
#include "update/update_verification.h"
#include "crash/boot_reason.h"
#include "crash/crash_counter.h"
#include "crash/crash_stat.h"
#include "device/mcu_firmware.h"
#include "device/product_number.h"
#include "ipc/receive_thread.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"
#include "process/exit_watch.h"
#include "process/integrity_check.h"
#include "process/own_processes.h"
#include "process/process_management.h"
#include "status/snapshot.h"
#include "timesync/clock_sync_thread.h"
#include "timesync/mcu_clock.h"
#include "update/boot_flags.h"
#include "watchdog/hw_watchdog.h"

namespace {

constexpr const char* kVersion = CUSTODO_VERSION_TEXT;
constexpr int kSwitchPartitionCrashes = 9;
constexpr int kRestorePartitionMaxCrashes = 4;
constexpr unsigned kSwitchPartitionWaitSeconds = 100;

void lock_memory() {
  // Every thread allocates from the main heap: a thread's own arena would reserve 64 MiB,
  // all of it locked below.
  mallopt(M_ARENA_MAX, 1);
  // The heap grows by what is asked, not by 128 KiB at a time, all of it locked, and gives
  // back what it no longer holds; what it grew by before now is given back at once.
  mallopt(M_TOP_PAD, 16 * 1024);
  mallopt(M_TRIM_THRESHOLD, 32 * 1024);
  malloc_trim(0);
#ifndef CUSTODO_SANITIZE
  // The sanitizers' shadow memory is far too large to lock.
  mlockall(MCL_CURRENT | MCL_FUTURE);
#endif
}

std::string config_dir(int argc, char* argv[]) {
  if (argc == 2) return argv[1];
  const char* fallback = board_path(BoardPath::ConfigDir);
  log_line("usage: Custodo [conf path] \n no config file specified, use default path ", fallback);
  return fallback;
}

constexpr int kLastStartupPhase = 6;

// A start-up phase ended: the main thread moves on.
void phase_done(int phase, const char* line) {
  log_line(line);
  note_progress();
  if (phase < kLastStartupPhase) status_phase("start-up phase " + std::to_string(phase + 1));
}

// Kills leftovers of a previous run, ours alone, found as pkill and the daemons' search find
// them; the result of the last command.
int force_killall() {
  struct Leftover {
    const char* cmdline;
    const char* search[4];
  };
  static const Leftover kLeftovers[] = {
      {"pkill -9 quom", {"pgrep", "quom", nullptr}},
      {"killall -9 netmgrd", {"pidof", "-x", "netmgrd", nullptr}},
      {"killall -9 AppBridge", {"pidof", "-x", "AppBridge", nullptr}},
      {"killall -9 chimer", {"pidof", "-x", "chimer", nullptr}},
      {"pkill -9 CoreCtl", {"pgrep", "CoreCtl", nullptr}},
      {"killall -9 tqlogd", {"pidof", "-x", "tqlogd", nullptr}},
  };
  int result = 0;
  for (const Leftover& leftover : kLeftovers)
    result = kill_own_processes(leftover.cmdline, leftover.search);
  return result;
}

void arm_watchdog() {
  active_wdog();
  feed_wdog();
  deactive_wdog();
  create_hw_wdog_thread();
}

}  // namespace

int main(int argc, char* argv[]) {
  std::string refusal = board_check();
  if (!refusal.empty()) {
    std::fprintf(stderr, "custodo: %s\n", refusal.c_str());
    return 1;
  }
  lock_memory();

  _BL_UpdateProgressFlag update_flag = UpdateProgress_Unknown;
  read_upprog_flag(&update_flag);
  log_line("UpdateProgress flag = ", static_cast<int>(update_flag));
  log_line("Update Global flag read = ",
           _UpdateProgress2String(static_cast<_BL_UpdateProgressFlag>(g_upgrader_flag.load())));
  int total_crash = get_total_crash();
  int current_crash = get_current_crash();
  gStatInfo[4] = static_cast<uint8_t>(total_crash);
  gStatInfo[5] = static_cast<uint8_t>(current_crash);
  status_crashes(current_crash, total_crash);
  get_update_info_path();
  log_line("version: ", kVersion);
  log_line("crash_time: ", total_crash, " ", current_crash);
  if (total_crash > kSwitchPartitionCrashes) {
    // The partition flag was left unrestored: the watchdog's reset boots the other partition.
    log_line("need to switch to another partition, wait hw watchdog timeout...");
    board_sleep(kSwitchPartitionWaitSeconds);
  }
  if (already_running(board_path(BoardPath::PidFile)) != 0) return 0;
  status_start(kVersion);
  force_killall();
  fl_signalinit();
  liveness_init();
  std::string conf_dir = config_dir(argc, argv);
  arm_watchdog();
  update_mcu(board_path(BoardPath::McuFirmwareMatch));

  int mode = getsysmode();
  status_mode(mode);
  g_bootreason = merge_boot_reason(mode);
  status_boot_reason(g_bootreason);
  check_mcu_readiness(mode);
  sync_ap_with_mcu();
  std::string list_path = conf_dir + "/" + process_list_for_mode(mode);
  ProcessManagement.SetIntegrityFailed(check_integrity(conf_dir) == 0);
  phase_done(0, "##################### 0. done...");

  ProcessManagement.InitialConfig(list_path);
  phase_done(1, "##################### 1. InitialConfig done...");
  ProcessManagement.CheckAllProcess();
  phase_done(2, "##################### 2. CheckAllProcess done...");
  ProcessManagement.KillAllProcess(KILL_WAIT);
  phase_done(3, "##################### 3. KillAllProcess done...");
  getrobotpn();
  getmcuver();
  create_ntp_thread(conf_dir);
  ProcessManagement.StartAllProcess();
  board_sleep(1);
  phase_done(4, "##################### 4. StartAllProcess done...");
  ProcessManagement.InitialMonitor();
  phase_done(5, "##################### 5. InitialMonitor done...");
  if (total_crash <= kRestorePartitionMaxCrashes) {
    restore_partition_flag();
  } else {
    // Unrestored, the flag lets the boot loader fall back to the other partition.
    log_line(" !!!!!!!!!!! not resotre partition flag, will switch partition if the system keep going wrong");
  }
  phase_done(6, "##################### 6. Restore partition flag done...");

  create_ipc_thread();
  OS_InitTimer();
  exit_watch_start(ProcessManagement.processes);
  verify_installed_update(update_flag);
  status_phase("supervising");
  run_main_loop();
}
