#include "device/product_number.h"

#include <cstring>

#include "core/log_line.h"
#include "platform/state_file.h"
#include "device/mcu_link.h"
#include "device/region.h"
#include "platform/board_paths.h"
#include "platform/mculink.h"
#include "status/snapshot.h"

namespace {

constexpr size_t kPnBytes = 32;

// The file holds the whole buffer: the product number, its zero byte and what follows.
void publish_pn(const char* buffer) {
  const char* path = board_path(BoardPath::ProductNumber);
  int written = write_state_file(path, buffer, kPnBytes);
  if (written == kStateFileUnopened)
    log_line("open pn file failed ", path);
  else if (written < 0)
    log_line("write pn file failed ", path);
}

}  // namespace

int visual_len(const char* s, int n) {
  int count = 0;
  while (count < n && s[count] >= ' ' && s[count] <= '~') ++count;
  return count;
}

int getrobotpn() {
  if (open_mcu_link("init_uart failed") < 0) return -1;
  // One byte more than the MCU fills: a product number of 32 printable bytes still ends.
  char pn[kPnBytes + 1] = {};
  int result = get_pn(pn);
  if (result < 0) {
    log_line("get pn file failed ", result);
    close_uart();
    return result;
  }
  int length = visual_len(pn, static_cast<int>(strnlen(pn, kPnBytes)));
  pn[length] = '\0';
  log_line("pn[", length, "] = ", pn);
  RegionConfig(board_path(BoardPath::RegionTable), pn);
  publish_pn(pn);
  status_product_number(pn);
  close_uart();
  return result;
}
