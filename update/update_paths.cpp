#include "update/update_paths.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "core/log_line.h"
#include "platform/board_paths.h"

char g_szUpdPkgPath[256];
char g_szUpdPkgName[256];
char g_szPkfInf[256];

namespace {

void take_setting(char (&target)[256], const char* variable, const char* fallback) {
  std::memset(target, 0, sizeof target);
  const char* value = std::getenv(variable);
  std::strncpy(target, value ? value : fallback, sizeof target - 1);
  log_line(variable, value ? " from env: " : " default to: ", target);
}

}  // namespace

void get_update_info_path() {
  take_setting(g_szUpdPkgPath, "UPDPKG_INFO_PATH", board_path(BoardPath::UpdatePackageDir));
  take_setting(g_szUpdPkgName, "UPDPKG_INFO_NAME", "Update.pkg.inf");
  std::string joined = std::string(g_szUpdPkgPath) + "/" + g_szUpdPkgName;
  std::memset(g_szPkfInf, 0, sizeof g_szPkfInf);
  std::strncpy(g_szPkfInf, joined.c_str(), sizeof g_szPkfInf - 1);
  log_line("pkginf path: ", g_szPkfInf);
}
