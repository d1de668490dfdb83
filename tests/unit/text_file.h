// Whole-file reads and writes for tests that prepare and inspect a board's files.
#pragma once
#include <string>

// The file's text; "" when it cannot be read.
std::string read_text(const std::string& path);

// Replaces the file's text; nullptr removes the file.
void write_text(const std::string& path, const char* text);
