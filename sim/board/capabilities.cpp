#include "sim/board/capabilities.h"

#include <sys/capability.h>

#include <initializer_list>

bool drop_host_capabilities() {
  const cap_value_t caps[] = {CAP_SYS_TIME, CAP_SYS_BOOT};
  constexpr int count = sizeof caps / sizeof caps[0];
  bool dropped = true;
  for (cap_value_t cap : caps) dropped = cap_drop_bound(cap) == 0 && dropped;
  cap_t state = cap_get_proc();
  if (state == nullptr) return false;
  for (cap_flag_t set : {CAP_EFFECTIVE, CAP_PERMITTED, CAP_INHERITABLE})
    dropped = cap_set_flag(state, set, count, caps, CAP_CLEAR) == 0 && dropped;
  dropped = cap_set_proc(state) == 0 && dropped;
  cap_free(state);
  return dropped;
}
