// The one way the supervisor runs a shell command, and its children that need no shell.
#pragma once

// Runs the command line through the shell and waits for it. Returns its exit code (0-255);
// 255 when no shell could be run, and 0 for a shell ended by a signal. A daemon's command line
// ends in "&": the shell puts the job in the background and exits, and the job is the init's
// (or the nearest subreaper's), as on every robot. With `variable` ("NAME=VALUE") the shell,
// and so the job, has it in its environment; the log lines are the same.
int tq_system(const char* cmdline, const char* variable = nullptr);

// Runs argv without a shell, for a command line the shell would only split into these words;
// logged and decoded as tq_system does the command line, so that both tell the same. A
// program that is not found exits 127, as the shell reports it.
int tq_system_direct(const char* cmdline, const char* const argv[]);

// Runs argv[0], found through PATH, with the arguments as they stand (nothing is parsed by a
// shell), in directory `dir`, and waits for it. Returns its exit code (0-255); 255 when it
// could not be run or was ended by a signal.
int run_program(const char* dir, const char* const argv[]);
