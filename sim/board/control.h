// The control socket sim/control.sock of a running board: one request line in, one answer
// out. Requests: "counter freeze [MS]", "counter set MS", "counter run", "unstick", "halt"
// (the init's last word before the board goes down), "status". Answers begin with "ok" or
// "error".
#pragma once
#include <string>

bool control_start(const std::string& path, std::string* error);
void control_stop();

// Sends one request to the board below the current root; false when no board answers.
bool control_request(const std::string& request, std::string* answer);
