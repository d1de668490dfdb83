#include "process/integrity_check.h"

#include <unistd.h>

#include "core/log_line.h"
#include "core/shell.h"
#include "platform/board_paths.h"

namespace {

// Single quotes for the shell, with embedded quotes closed and reopened.
std::string quoted(const std::string& text) {
  std::string result = "'";
  for (char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

}  // namespace

int check_integrity(const std::string& config_dir) {
  std::string manifest = config_dir + "/integrity.sha256";
  if (access(manifest.c_str(), F_OK) != 0) {
    log_line("integrity check: no manifest ", manifest, ", nothing to check");
    return 1;
  }
  std::string cmdline = "cd " + quoted(board_root() + "/") + " && sha256sum --quiet --strict -c " +
                        quoted(manifest);
  if (tq_system(cmdline.c_str()) == 0) {
    log_line("integrity check passed");
    return 1;
  }
  log_line("integrity check failed: AppBridge and netmgrd will not be started");
  return 0;
}
