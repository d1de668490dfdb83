// The one way the supervisor runs a shell command.
#pragma once

// Runs the command line through the shell and waits for it. Returns its exit code (0-255);
// 255 when no shell could be run, and 0 for a shell ended by a signal.
int tq_system(const char* cmdline);
