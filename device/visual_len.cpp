#include "device/visual_len.h"

int visual_len(const char* s, int n) {
  int count = 0;
  while (count < n && s[count] >= ' ' && s[count] <= '~') ++count;
  return count;
}
