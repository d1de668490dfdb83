// Packets to the supervisor's module, dispatched as the receive thread does: the power-off and
// reboot requests, the cloud-client reset, the update stages and their boot-loader flags.
#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ipc/messages.h"
#include "ipc/receive_thread.h"
#include "tests/common/boot_environment.h"
#include "tests/fuzz/fuzz_board.h"
#include "update/update_stage.h"

namespace {

// Requests become events on the fixed-key queue: an IPC namespace of its own keeps them from
// any supervisor on this machine.
bool isolate() {
  if (unshare(CLONE_NEWIPC) != 0) {
    std::perror("fuzz: an IPC namespace of its own needs root");
    std::exit(1);
  }
  return make_environment(false, {{"update_progress_flag", "0"}});
}

// A stage payload larger than its record ends the process on purpose.
bool ends_process(const IpcPacket& packet) {
  return (packet.id == MSG_UPDATE_STAGE_START_WATCHDOG &&
          packet.length > sizeof(_Robot_UpdateStageId)) ||
         (packet.id == MSG_UPDATE_STAGE_DONE_WATCHDOG &&
          packet.length > sizeof(_Robot_UpdateStageComplete));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = isolate();
  if (!ready) std::abort();
  IpcPacket packet{};
  std::memcpy(&packet, data, std::min(size, sizeof packet));
  if (ends_process(packet)) return -1;
  dispatch_packet(packet);
  return 0;
}
