#include "crash/crash_stat.h"

#include "core/log_line.h"
#include "platform/tqlog.h"

std::array<std::atomic<uint8_t>, 6> gStatInfo{};

namespace {

struct KnownDaemon {
  const char* name;
  uint8_t bit;
  const char* line;
  int key;
};

// Compared in this order, whole names only.
constexpr KnownDaemon kKnownDaemons[] = {
    {"tqlogd", 0x01, "tqlogd crashed", 5},
    {"chimer", 0x02, "chimer crashed", 12},
    {"CoreCtl", 0x04, "CoreCtl crashed", 6},
    {"AppBridge", 0x08, "AppBridge crashed", 7},
    {"netmgrd", 0x10, "netmgrd crashed", 8},
    {"Upgrader", 0x20, "Upgrader crashed", 9},
    {"quom_client", 0x40, "quom_client crashed", 10},
    {"quom_client_helper_nomqtt.sh", 0x80, "quom_client_helper_nomqtt crashed", 11},
};

}  // namespace

void stat_crash(const std::string& name) {
  for (const KnownDaemon& daemon : kKnownDaemons) {
    if (name == daemon.name) {
      gStatInfo[0].fetch_or(daemon.bit, std::memory_order_relaxed);
      log_line(daemon.line);
      tq_stat_int(kStatGroup, daemon.key, 1);
      break;
    }
  }
  print_raw("%x %x\n", gStatInfo[0].load(std::memory_order_relaxed),
            gStatInfo[1].load(std::memory_order_relaxed));
}
