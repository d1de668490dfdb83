// The sample configuration: the files that a new board root holds in the robot's configuration
// places, and that the install rules ship as well.
#pragma once
#include <string>
#include <utility>
#include <vector>

// Each file's path below the root of the file system, with its text.
std::vector<std::pair<std::string, std::string>> sample_configuration();
