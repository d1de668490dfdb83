#include "platform/board_paths.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Entry {
  BoardPath which;
  const char* target;
  const char* sim;  // below the board root; nullptr when it is the target path
};

constexpr Entry kPaths[] = {
    {BoardPath::ConfigDir, "/opt/belvane/watchdog", nullptr},
    {BoardPath::FailureCount, "/opt/belvane/watchdog/failure_count", nullptr},
    {BoardPath::RegionTable, "/opt/belvane/watchdog/region.conf", nullptr},
    {BoardPath::McuFirmwareMatch, "/opt/belvane/firmware/bin/MCU_FIRMWARE_MATCH", nullptr},
    {BoardPath::CpuScript, "/opt/belvane/scripts/cpu.sh", nullptr},
    {BoardPath::FactorySounds, "/opt/belvane/resources/sounds/", nullptr},
    {BoardPath::Watchdog, "/dev/watchdog", nullptr},
    {BoardPath::Jiffies, "/dev/jiffies", nullptr},
    {BoardPath::UartMcu, "/dev/uart_mcu", nullptr},
    {BoardPath::PidFile, "/dev/shm/custodo.pid", nullptr},
    {BoardPath::TimeOffset, "/dev/shm/timeoffset", nullptr},
    {BoardPath::McuVersion, "/dev/shm/mcu_version", nullptr},
    {BoardPath::ProductNumber, "/dev/shm/sn", nullptr},
    {BoardPath::StatusSnapshot, "/dev/shm/custodo-status.json", nullptr},
    {BoardPath::SharedMemoryDir, "/dev/shm", nullptr},
    {BoardPath::BootReason, "/proc/belvane/boot_reason", nullptr},
    {BoardPath::KernelCmdline, "/proc/cmdline", nullptr},
    {BoardPath::McuReady, "/mnt/reserve/mcu_ready", nullptr},
    {BoardPath::RegionFile, "/mnt/reserve/belvane.conf", nullptr},
    {BoardPath::UpdatePackageDir, "/mnt/data/.temp", nullptr},
    {BoardPath::QuomNetlinkConf, "/mnt/data/quom/netlink.conf", nullptr},
    {BoardPath::CleanParams, "/mnt/data/belvane/CleanParams.cfg", nullptr},
    {BoardPath::Schedules, "/mnt/data/belvane/schedules.cfg", nullptr},
    {BoardPath::UserSounds, "/mnt/data/belvane/sounds/", nullptr},
    {BoardPath::FwEnvConfig, "/etc/fw_env.config", nullptr},
    {BoardPath::IpcSocketDir, "/run/nodeipc", nullptr},
    {BoardPath::NotifySocket, "/run/custodo/notify", nullptr},
    {BoardPath::StatLog, "/var/log/tqstat.log", "/sim/tqstat.log"},
};

// Every name has its path, at the place of its value.
constexpr bool in_enum_order() {
  size_t i = 0;
  for (const Entry& entry : kPaths)
    if (static_cast<size_t>(entry.which) != i++) return false;
  return i == static_cast<size_t>(BoardPath::Count);
}
static_assert(in_enum_order(), "kPaths lists every BoardPath once, in the enum's order");

#ifdef CUSTODO_BOARD_SIM
constexpr bool kSimulated = true;
#else
constexpr bool kSimulated = false;
#endif

std::string read_root() {
  if (!kSimulated) return "";
  const char* root = std::getenv("CUSTODO_BOARD_ROOT");
  if (root == nullptr || *root == '\0') {
    // Never fall back to the host's own paths.
    std::fprintf(stderr, "custodo: CUSTODO_BOARD_ROOT is not set\n");
    std::abort();
  }
  std::string dir = root;
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir;
}

const char* below_root(const Entry& entry) {
  return kSimulated && entry.sim != nullptr ? entry.sim : entry.target;
}

struct Table {
  std::string root = read_root();
  std::array<std::string, std::size(kPaths)> paths;
  Table() {
    for (size_t i = 0; i < paths.size(); ++i) paths[i] = root + below_root(kPaths[i]);
  }
};

const Table& table() {
  static const Table t;
  return t;
}

}  // namespace

const char* board_path(BoardPath which) { return table().paths[static_cast<size_t>(which)].c_str(); }

const char* board_relative_path(BoardPath which) {
  return below_root(kPaths[static_cast<size_t>(which)]) + 1;
}

const std::string& board_root() { return table().root; }

std::string board_check() {
  if (!kSimulated) return "";
  const char* root = std::getenv("CUSTODO_BOARD_ROOT");
  if (root == nullptr || *root == '\0')
    return "CUSTODO_BOARD_ROOT is not set: this simulated build runs only on a simulated board "
           "(custodo-board run DIR)";
  char comm[64] = {};
  if (FILE* file = std::fopen("/proc/1/comm", "re")) {
    if (std::fgets(comm, sizeof comm, file) == nullptr) comm[0] = '\0';
    std::fclose(file);
  }
  std::string init(comm, std::strcspn(comm, "\n"));
  if (init != "custodo-board")
    return "not inside a simulated board (PID 1 is '" + init +
           "', not custodo-board): start it with custodo-board run DIR";
  return "";
}
