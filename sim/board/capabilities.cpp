#include "sim/board/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

bool drop_host_capabilities() {
  const int caps[] = {CAP_SYS_TIME, CAP_SYS_BOOT};
  bool dropped = true;
  for (int cap : caps) dropped = prctl(PR_CAPBSET_DROP, cap, 0, 0, 0) == 0 && dropped;
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (syscall(SYS_capget, &header, data) != 0) return false;
  for (int cap : caps) {
    uint32_t bit = 1u << (cap % 32);
    data[cap / 32].effective &= ~bit;
    data[cap / 32].permitted &= ~bit;
    data[cap / 32].inheritable &= ~bit;
  }
  return syscall(SYS_capset, &header, data) == 0 && dropped;
}
