// The one way the supervisor runs a shell command, its children that need no shell, and the
// commands whose work it does itself, logged alike.
#pragma once
#include <functional>
#include <string>

// Runs the command line through the shell and waits for it. Returns its exit code (0-255);
// 255 when no shell could be run, and 0 for a shell ended by a signal. A daemon's command line
// ends in "&": the shell puts the job in the background and exits, and the job is the init's
// (or the nearest subreaper's), as on every robot. With `variable` ("NAME=VALUE") the shell,
// and so the job, has it in its environment; the log lines are the same.
int tq_system(const char* cmdline, const char* variable = nullptr);

// For a command line whose work the supervisor does itself: `work` runs between the lines
// tq_system logs for the command line and returns the exit code that the command would have.
int tq_system_in_process(const char* cmdline, const std::function<int()>& work);

// Publishes `content` as the file `path` through the state-file writer, in place of the
// shell's redirection in `cmdline`, which is logged as tq_system logs it: exit code 0, or 1
// when the file could not be written, as the redirection would fail. No link is followed.
int tq_system_publish(const char* cmdline, const char* path, const std::string& content);

// Runs argv[0], found through PATH, with the arguments as they stand (nothing is parsed by a
// shell), in directory `dir`, and waits for it. Returns its exit code (0-255); 255 when it
// could not be run or was ended by a signal.
int run_program(const char* dir, const char* const argv[]);
