// The persistent count of key-process crashes. The file holds the crashes of the current group
// of five in its low 8 bits and the number of completed groups above them.
#pragma once

int get_total_crash();
int get_current_crash();
void add_crash_time();
// Deletes the counter file; the shell runner's result.
int clear_crash_time();
// The quiet period in minutes after which the counter is cleared: CRASH_IGNORE_MIN, or 600.
int get_crash_ignore_time();
