#include "device/mcu_link.h"

#include "core/log_line.h"
#include "platform/mculink.h"

int open_mcu_link(const char* failed, const char* after) {
  int fd = init_uart();
  if (fd < 0) {
    log_line(failed, fd, after);
    close_uart();
  }
  return fd;
}
