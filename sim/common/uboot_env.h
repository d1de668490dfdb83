// The boot loader's environment as libubootenv writes it: the copies named by a fw_env.config,
// a redundant pair when it names two.
#pragma once
#include <string>
#include <utility>
#include <vector>

namespace sim {

using EnvVars = std::vector<std::pair<std::string, std::string>>;

// Stores `vars` into the environment that `config` describes, starting from an empty one when
// no copy holds a valid environment yet (new copies: zeros at their full size). False when the
// library refuses.
bool write_uboot_env(const std::string& config, const EnvVars& vars);

}  // namespace sim
