#include "sim/common/uboot_env.h"

#include <libuboot.h>

#include <cerrno>

namespace sim {

bool write_uboot_env(const std::string& config, const EnvVars& vars) {
  uboot_ctx* ctx = nullptr;
  if (libuboot_initialize(&ctx, nullptr) < 0) return false;
  bool stored = false;
  if (libuboot_read_config(ctx, config.c_str()) == 0) {
    int opened = libuboot_open(ctx);
    stored = opened == 0 || opened == -ENODATA;  // ENODATA: no valid copy yet
    for (const auto& var : vars)
      stored = stored && libuboot_set_env(ctx, var.first.c_str(), var.second.c_str()) == 0;
    stored = stored && libuboot_env_store(ctx) == 0;
    libuboot_close(ctx);
  }
  libuboot_exit(ctx);
  return stored;
}

}  // namespace sim
