// The board's console: what the supervisor and the daemons write on standard output and
// standard error comes through one pipe and goes on to our standard output and to
// sim/console.log.
#pragma once
#include <string>

bool console_start(const std::string& log_path, std::string* error);
// The pipe's write end, for the board's processes.
int console_writer();
// Closes our write end and passes on what is left once the board's processes are gone.
void console_stop();
