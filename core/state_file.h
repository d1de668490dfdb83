// State files the supervisor writes itself: written to a temporary name, flushed and renamed
// over the old file, so that a reader or a power cut never leaves a half-written file.
#pragma once
#include <cstddef>

// Returns the number of bytes written (all of them), or -1 when the file could not be written.
int write_state_file(const char* path, const void* data, size_t size);
