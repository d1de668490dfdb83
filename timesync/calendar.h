// Calendar times as the clock code logs and judges them.
#pragma once
#include <ctime>
#include <string>

struct tm local_time(time_t seconds);
struct tm utc_time(time_t seconds);

// The time library's fixed calendar string, "Fri Jul 14 02:40:00 2017\n" with its line end.
std::string calendar_string(const struct tm& when);

// A clock in 2015 or earlier was never set: the board boots with such a date.
bool clock_is_valid(const struct tm& local);
