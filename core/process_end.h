#pragma once

// Ends the supervisor with `status` at once. Static destructors and exit handlers do not run:
// other threads may still be using what they would destroy. Every log line is already written.
[[noreturn]] void end_process(int status);
