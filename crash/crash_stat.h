// Per-daemon crash statistics: the gStatInfo record and its report to the statistics service.
#pragma once
#include <array>
#include <atomic>
#include <cstdint>
#include <string>

// Byte 0: mask of the daemons reported since start; 1: printed beside it; 2 and 3: NTP
// queries that succeeded and failed; 4 and 5: total and current crash count at start.
extern std::array<std::atomic<uint8_t>, 6> gStatInfo;

// All statistics of the supervisor go to this group of the statistics service.
constexpr int kStatGroup = 6;

void stat_crash(const std::string& name);
