#include "process/integrity_check.h"

#include <unistd.h>

#include "core/log_line.h"
#include "core/shell.h"
#include "platform/board_paths.h"

int check_integrity(const std::string& config_dir) {
  std::string manifest = config_dir + "/integrity.sha256";
  if (access(manifest.c_str(), F_OK) != 0) {
    log_line("integrity check: no manifest ", manifest, ", nothing to check");
    return 1;
  }
  // The manifest's paths are relative to the file-system root; no shell reads the manifest's
  // path, whatever characters it holds.
  std::string root = board_root() + "/";
  const char* const argv[] = {"sha256sum", "--quiet", "--strict", "-c", manifest.c_str(), nullptr};
  if (run_program(root.c_str(), argv) == 0) {
    log_line("integrity check passed");
    return 1;
  }
  log_line("integrity check failed: AppBridge and netmgrd will not be started");
  return 0;
}
