// What every fuzz target shares: libFuzzer's entry points, and a scratch board whose files the
// targets fill with their input.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Replaces the file's content with the bytes.
void write_input(const std::string& path, const uint8_t* data, size_t size);

// Two texts from one input: the bytes before its first NUL byte, and those after it (none
// without one).
void split_input(const uint8_t* data, size_t size, std::string* first, std::string* rest);
