// Children of the supervisor. They inherit no descriptor beyond 0-2 and start with default
// signal handling; a wait for them on the main thread gives way to a stop signal.
//
// From a child's start to the end of its wait SIGCHLD has its default disposition, whatever
// the process was started with: an ignored SIGCHLD would reap the child unseen. Threads whose
// children overlap share this: the disposition in force before the first is put back after the
// last, so every wait gets its own child's status.
#pragma once
#include <sys/types.h>

#include <string>

// Starts argv[0] (searched in PATH) with argv, in directory `dir` when given; with `output`,
// its standard output goes to a pipe whose reading end is stored there; with `variable`
// ("NAME=VALUE"), the child's environment is ours with that variable set. The child's pid, to
// be waited for with wait_child, or -1 with errno set.
pid_t spawn_child(const char* const argv[], int* output = nullptr, const char* dir = nullptr,
                  const char* variable = nullptr);

// Waits for the child to end: its wait status, or -1.
int wait_child(pid_t pid);

// Runs argv and returns its wait status; -1 when it could not be started (errno set).
int run_child(const char* const argv[], const char* dir = nullptr, const char* variable = nullptr);

// Runs argv and collects its standard output (at most `limit` bytes are kept); the wait status.
int run_child_output(const char* const argv[], std::string* output, size_t limit);
