// Which daemons of the process list play a part in the supervisor's own decisions, and the
// rule by which each is recognised in the list. The rules differ from role to role on purpose:
// the robots' lists were written for them, so each stays as it is.
#pragma once
#include <string>

namespace daemon_role {

constexpr const char* kAppBridge = "AppBridge";  // told the NTP offset while it runs
constexpr const char* kUpgrader = "Upgrader";    // the firmware updater, launched by phase
constexpr const char* kCoreCtl = "CoreCtl";      // runs in its updating mode during an update
constexpr const char* kCloudClient = "quom_client";
constexpr const char* kCloudClientHelper = "quom_client_helper_nomqtt.sh";
constexpr const char* kNetworkManager = "netmgrd";
constexpr const char* kChimer = "chimer";  // the sound daemon, which carries the time to the MCU
constexpr const char* kLogDaemon = "tqlogd";

inline bool contains(const std::string& text, const char* word) {
  return text.find(word) != std::string::npos;
}

// StartProc goes by part of the name: a longer name holding the word plays the role. The
// cloud client's helper holds the client's name, so the client's rule decides for it too.
inline bool starts_as_upgrader(const std::string& name) { return contains(name, kUpgrader); }
inline bool starts_as_core_controller(const std::string& name) { return contains(name, kCoreCtl); }
inline bool starts_as_cloud_client(const std::string& name) { return contains(name, kCloudClient); }

// The check and the stop go by the exact name.
inline bool is_app_bridge(const std::string& name) { return name == kAppBridge; }
inline bool is_upgrader(const std::string& name) { return name == kUpgrader; }
inline bool is_cloud_client(const std::string& name) {
  return name == kCloudClient || name == kCloudClientHelper;
}
inline bool is_log_daemon(const std::string& name) { return name == kLogDaemon; }

// After a failed integrity check, a list line that mentions the cloud client's network
// daemons anywhere is left out.
inline bool needs_cloud_integrity(const std::string& line) {
  return contains(line, kAppBridge) || contains(line, kNetworkManager);
}

}  // namespace daemon_role
