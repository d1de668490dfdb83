#include "ipc/receive_thread.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "core/event_queue.h"
#include "core/log_line.h"
#include "core/threads.h"
#include "ipc/messages.h"
#include "platform/board_time.h"
#include "platform/nodeipc.h"
#include "update/update_stage_handlers.h"

std::atomic<int> ipc_enable{1};
char g_szSoundFile[30];

namespace {

pthread_t ipc_thread;
std::mutex prompt_mutex;
constexpr unsigned kRetryPauseSeconds = 1;

// The option record is taken whole, whatever the length field says. The prompt name is
// written before the event is posted: the queue orders it before the main loop reads it.
void on_shutdown(const IpcPacket& packet) {
  log_line("ipc_com_rcv_thread MSG_SHUTDOWN_WATCHDOG");
  ShutdownOption option;
  std::memcpy(&option, packet.payload, sizeof option);
  if (option.sound[0] != '\0') {
    std::lock_guard<std::mutex> lock(prompt_mutex);
    std::memset(g_szSoundFile, 0, sizeof g_szSoundFile);
    std::strncpy(g_szSoundFile, option.sound, sizeof g_szSoundFile);
  }
  if (option.reboot != 0) {
    log_line(" shutdown.option = reboot");
    OS_SendQueue(REBOOT_SYSTEM);
  } else {
    log_line(" shutdown.option = shutodwn");
    OS_SendQueue(SHUTDOWN_SYSTEM);
  }
}

// A payload larger than the record means the sender and this program disagree on the
// message: that is fatal.
template <typename Record>
void copy_payload(const IpcPacket& packet, Record* record) {
  if (packet.length > sizeof(Record)) std::abort();
  std::memcpy(record, packet.payload, packet.length);
}

}  // namespace

void dispatch_packet(const IpcPacket& packet) {
  switch (packet.id) {
    case MSG_SHUTDOWN_WATCHDOG:
      on_shutdown(packet);
      break;
    case MSG_UPDATE_STAGE_START_WATCHDOG: {
      log_line("watchdog got MSG_UPDATE_STAGE_START_WATCHDOG");
      _Robot_UpdateStageId stage{};
      copy_payload(packet, &stage);
      HandleUpdateStageStart(stage);
      break;
    }
    case MSG_UPDATE_STAGE_DONE_WATCHDOG: {
      log_line("watchdog got MSG_UPDATE_STAGE_DONE_WATCHDOG");
      _Robot_UpdateStageComplete record{};
      copy_payload(packet, &record);
      HandleUpdateStageDone(&record);
      break;
    }
    case MSG_QUOM_RESET:
      log_line("ipc_com_rcv_thread MSG_QUOM_RESET");
      OS_SendQueue(RESET_QUOM);
      break;
    case MSG_REBOOT_WATCHDOG:
      OS_SendQueue(REBOOT_SYSTEM);
      break;
    default:
      break;
  }
}

std::string requested_prompt() {
  std::lock_guard<std::mutex> lock(prompt_mutex);
  return std::string(g_szSoundFile, strnlen(g_szSoundFile, sizeof g_szSoundFile));
}

namespace {

void* ipc_com_rcv_thread(void*) {
  // Zeroed once: a short message leaves the bytes of earlier ones in place.
  IpcPacket packet{};
  log_line("ipc_com_rcv_thread started!\n");
  // A socket that cannot be bound fails every try at once: failed tries (negative) are paced,
  // and logged when they differ from the last one logged since a datagram came. An empty
  // datagram (0) is logged each time, as any packet that came.
  int last_failure = 0;
  while (ipc_enable) {
    int rval = RecvPacket(&packet);
    if (rval <= 0) {
      if (rval == 0 || rval != last_failure)
        log_line("ignore ipc_com_rcv_thread RecvPacket rval = ", rval);
      last_failure = rval;
      if (rval < 0) board_sleep(kRetryPauseSeconds);
      continue;
    }
    last_failure = 0;
    log_line("ipc_com_rcv_thread RecvPacket MsgId = ", packet.id, " rval = ", rval);
    dispatch_packet(packet);
  }
  log_line("ipc_com_rcv_thread end\n");
  return nullptr;
}

}  // namespace

int create_ipc_thread() { return start_thread(&ipc_thread, ipc_com_rcv_thread); }
