// One supervisor per board: a write lock on the pid file, held for the life of the process.
#pragma once

// 0 when this process now holds the lock, 1 when another one does; other errors end the process.
int already_running(const char* path);
int lockfile(int fd);
