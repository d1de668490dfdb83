#include "tests/common/boot_environment.h"

#include <fstream>
#include <string>

#include "platform/board_paths.h"

bool make_environment(bool redundant, const sim::EnvVars& vars) {
  std::string copies[] = {board_root() + "/sim/env.a", board_root() + "/sim/env.b"};
  std::ofstream config(board_path(BoardPath::FwEnvConfig), std::ios::trunc);
  for (int i = 0; i < (redundant ? 2 : 1); ++i) {
    std::ofstream(copies[i], std::ios::trunc) << std::string(0x4000, '\0');
    config << copies[i] << " 0x0 0x4000\n";
  }
  config.close();
  return sim::write_uboot_env(board_path(BoardPath::FwEnvConfig), vars);
}

void break_environment() {
  std::ofstream(board_path(BoardPath::FwEnvConfig), std::ios::trunc)
      << board_root() << "/sim/absent.env 0x0 0x4000\n";
}
