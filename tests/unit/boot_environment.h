// The boot loader's side of a test board: its U-Boot environment and the kernel command line.
#pragma once
#include <string>

#include "sim/common/uboot_env_image.h"

// A board whose boot-loader environment holds `vars`, in one copy or in two.
void make_environment(bool redundant, const sim::EnvVars& vars);
void write_cmdline(const std::string& text);
