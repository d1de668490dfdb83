#include "device/uptime.h"

#include <sys/sysinfo.h>

#include "core/log_line.h"

int get_uptime() {
  struct sysinfo info {};
  int result = sysinfo(&info);
  if (result != 0) print_raw("code error = %d\n", result);
  return static_cast<int>(info.uptime);
}
