// Every fixed path of the board, named once. On the robot they are used as they stand; on
// the simulated board they resolve below the board root named by CUSTODO_BOARD_ROOT.
#pragma once
#include <string>

enum class BoardPath {
  ConfigDir,         // /opt/belvane/watchdog
  FailureCount,      // /opt/belvane/watchdog/failure_count
  RegionTable,       // /opt/belvane/watchdog/region.conf
  McuFirmwareMatch,  // /opt/belvane/firmware/bin/MCU_FIRMWARE_MATCH
  CpuScript,         // /opt/belvane/scripts/cpu.sh
  FactorySounds,     // /opt/belvane/resources/sounds/
  Watchdog,          // /dev/watchdog
  Jiffies,           // /dev/jiffies
  UartMcu,           // /dev/uart_mcu
  PidFile,           // /dev/shm/custodo.pid
  TimeOffset,        // /dev/shm/timeoffset
  McuVersion,        // /dev/shm/mcu_version
  ProductNumber,     // /dev/shm/sn
  StatusSnapshot,    // /dev/shm/custodo-status.json
  SharedMemoryDir,   // /dev/shm
  BootReason,        // /proc/belvane/boot_reason
  KernelCmdline,     // /proc/cmdline
  McuReady,          // /mnt/reserve/mcu_ready
  RegionFile,        // /mnt/reserve/belvane.conf
  UpdatePackageDir,  // /mnt/data/.temp
  QuomNetlinkConf,   // /mnt/data/quom/netlink.conf
  CleanParams,       // /mnt/data/belvane/CleanParams.cfg
  Schedules,         // /mnt/data/belvane/schedules.cfg
  UserSounds,        // /mnt/data/belvane/sounds/
  FwEnvConfig,       // /etc/fw_env.config
  IpcSocketDir,      // /run/nodeipc
  NotifySocket,      // /run/custodo/notify
  StatLog,           // /var/log/tqstat.log (sim/tqstat.log on the simulated board)
  Count
};

// The path of a board file, valid for the life of the process.
const char* board_path(BoardPath which);

// Where the file lies below a board root, without a leading slash ("dev/jiffies"): its path on
// the robot, or the simulator's place for it. For the simulator's own programs, which are given
// the root.
const char* board_relative_path(BoardPath which);

// The board root: "" on the robot, the directory of CUSTODO_BOARD_ROOT on the simulated board.
const std::string& board_root();

// Empty when the program may run on this board, else why not. The simulated build runs only
// inside a simulated board: CUSTODO_BOARD_ROOT set and the board's init as PID 1.
std::string board_check();
