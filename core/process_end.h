// Ending the supervisor.
#pragma once
#include <unistd.h>

// Ends the supervisor with `status` at once. Static destructors and exit handlers do not run:
// other threads may still be using what they would destroy. Every log line is already written.
[[noreturn]] inline void end_process(int status) { _exit(status); }
