// Helpers shared by the commands of custodo-board: errors, the board root, small files.
#pragma once
#include "sim/common/sim_files.h"
#include <getopt.h>

#include <functional>
#include <string>
#include <vector>

using Args = std::vector<std::string>;

// Prints "custodo-board: <message>" on standard error and returns 1, the status of errors.
int fail(const std::string& message);

// Makes DIR this process's board root: absolute, without a trailing slash, and exported as
// CUSTODO_BOARD_ROOT before anything asks for a board path. Returns the root.
std::string use_root(const std::string& dir);

bool is_board_root(const std::string& root);
// True while a `run` holds the board's lock.
bool board_running(const std::string& root);

// For commands on an initialised root, running or not: 0, or 1 after printing why not.
int need_root(const std::string& dir, std::string* root);
// For commands that reach a running board: 0, or 1 after printing why not.
int need_running_board(const std::string& dir, std::string* root);

// A command's options through getopt_long (long options only): each one found goes to
// `on_option` with its `val` and argument, the other words to *words in order. With `rest`,
// the words after "--" are not looked at and go there. False on an unknown option or a missing
// argument (getopt says which), or when `on_option` refuses one.
using OptionHandler = std::function<bool(int, const std::string&)>;
bool parse_options(const Args& args, const option* options, const OptionHandler& on_option,
                   Args* words, Args* rest = nullptr);

// Decimal, or hexadecimal with 0x. False for anything else or a value above `max`.
bool parse_number(const std::string& text, unsigned long long max, unsigned long long* value);

// The running executable and its directory, where the other programs of the build lie.
std::string self_exe();
std::string self_dir();

// Writes a whole file through a temporary name, so readers never see half of it.
bool write_file(const std::string& path, const std::string& content, unsigned mode = 0644);
// Removes everything below `dir`, not `dir` itself; symbolic links are removed, not followed.
// False with errno set when something could not be removed.
bool remove_contents(const std::string& dir);
