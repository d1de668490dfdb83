#include "platform/board_paths.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Entry {
  const char* target;
  const char* sim;  // below the board root; nullptr when it is the target path
};

const std::array<Entry, static_cast<size_t>(BoardPath::Count)> kPaths = {{
    {"/opt/belvane/watchdog", nullptr},
    {"/opt/belvane/watchdog/failure_count", nullptr},
    {"/opt/belvane/watchdog/region.conf", nullptr},
    {"/opt/belvane/firmware/bin/MCU_FIRMWARE_MATCH", nullptr},
    {"/opt/belvane/scripts/cpu.sh", nullptr},
    {"/opt/belvane/resources/sounds/", nullptr},
    {"/dev/watchdog", nullptr},
    {"/dev/jiffies", nullptr},
    {"/dev/uart_mcu", nullptr},
    {"/dev/shm/custodo.pid", nullptr},
    {"/dev/shm/timeoffset", nullptr},
    {"/dev/shm/mcu_version", nullptr},
    {"/dev/shm/sn", nullptr},
    {"/dev/shm", nullptr},
    {"/proc/belvane/boot_reason", nullptr},
    {"/proc/cmdline", nullptr},
    {"/mnt/reserve/mcu_ready", nullptr},
    {"/mnt/reserve/belvane.conf", nullptr},
    {"/mnt/data/.temp", nullptr},
    {"/mnt/data/quom/netlink.conf", nullptr},
    {"/mnt/data/belvane/CleanParams.cfg", nullptr},
    {"/mnt/data/belvane/schedules.cfg", nullptr},
    {"/mnt/data/belvane/sounds/", nullptr},
    {"/etc/fw_env.config", nullptr},
    {"/run/nodeipc", nullptr},
    {"/var/log/tqstat.log", "/sim/tqstat.log"},
}};

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

struct Table {
  std::string root = read_root();
  std::array<std::string, kPaths.size()> paths;
  Table() {
    for (size_t i = 0; i < kPaths.size(); ++i) {
      const Entry& e = kPaths[i];
      paths[i] = kSimulated ? root + (e.sim ? e.sim : e.target) : e.target;
    }
  }
};

const Table& table() {
  static const Table t;
  return t;
}

}  // namespace

const char* board_path(BoardPath which) { return table().paths[static_cast<size_t>(which)].c_str(); }

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
