// The integrity check of the cloud client: its files against the SHA-256 manifest
// "integrity.sha256" of the configuration directory (the format `sha256sum -c` reads, with
// paths relative to the file-system root: the board root on the simulated board).
#pragma once
#include <string>

// 1 when every listed file matches, or when there is no manifest; 0 otherwise.
int check_integrity(const std::string& config_dir);
