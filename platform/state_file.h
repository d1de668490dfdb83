// State files written whole: to a temporary name, flushed and renamed over the old file, so
// that a reader or a power cut never finds a half-written one. The supervisor's own state
// files go through here, and so do the simulated board's. Whatever stands under the name is
// replaced, a directory too: a file is published whoever squatted its name.
#pragma once
#include <sys/types.h>

#include <cstddef>

constexpr int kStateFileUnopened = -1;   // the temporary file could not be created
constexpr int kStateFileUnwritten = -2;  // writing, flushing or renaming it failed

// Returns the number of bytes written (all of them), or one of the two failures above.
int write_state_file(const char* path, const void* data, size_t size, mode_t mode = 0644);
