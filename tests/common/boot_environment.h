// The boot loader's side of a scratch board: its U-Boot environment.
#pragma once
#include "sim/common/uboot_env.h"

// A board whose boot-loader environment holds `vars`, in one copy or in two; false when the
// library refuses them.
bool make_environment(bool redundant, const sim::EnvVars& vars);

// A board whose environment configuration names a file that is not there.
void break_environment();
