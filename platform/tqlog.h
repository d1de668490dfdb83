// The statistics calls of the logging library (libtqlog): the vendor's on the robot, or the
// open implementation in platform/open/ that appends one line per call.
#pragma once

extern "C" {
// Adds an integer event to a statistic.
int tq_stat_int(int group, int key, int value);
// Sets a statistic's value.
int tq_overwrite_int(int group, int key, int value);
}
