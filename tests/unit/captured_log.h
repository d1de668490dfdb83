// Runs code with standard output captured: the supervisor's log lines go straight to fd 1.
#pragma once
#include <functional>
#include <string>
#include <vector>

// The lines written while `code` ran, the "<ms> tqwatchdog " prefix of log lines removed.
std::vector<std::string> captured_log(const std::function<void()>& code);
