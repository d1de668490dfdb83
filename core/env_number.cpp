#include "core/env_number.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

int env_decimal(const char* name, int unset) {
  const char* text = std::getenv(name);
  if (text == nullptr) return unset;
  // strtoll itself holds a longer number at the ends of its range.
  long long value = std::strtoll(text, nullptr, 10);
  return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}
