#include "crash/crash_stat.h"

#include "core/log_line.h"
#include "platform/tqlog.h"
#include "process/daemon_roles.h"

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
    {daemon_role::kLogDaemon, 0x01, "tqlogd crashed", 5},
    {daemon_role::kChimer, 0x02, "chimer crashed", 12},
    {daemon_role::kCoreCtl, 0x04, "CoreCtl crashed", 6},
    {daemon_role::kAppBridge, 0x08, "AppBridge crashed", 7},
    {daemon_role::kNetworkManager, 0x10, "netmgrd crashed", 8},
    {daemon_role::kUpgrader, 0x20, "Upgrader crashed", 9},
    {daemon_role::kCloudClient, 0x40, "quom_client crashed", 10},
    {daemon_role::kCloudClientHelper, 0x80, "quom_client_helper_nomqtt crashed", 11},
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
