#include "core/event_queue.h"

#include <sys/msg.h>

#include <cerrno>
#include <cstdint>

#include "core/log_line.h"
#include "core/signals.h"

namespace {

constexpr key_t kQueueKey = static_cast<key_t>(0x80001000);

struct EventMessage {
  long type;
  int32_t id;
};

// Looked up on every use, so a queue removed from outside is created afresh.
int queue() { return msgget(kQueueKey, IPC_CREAT | 0666); }

}  // namespace

int OS_SendQueue(int event) {
  EventMessage message{1, event};
  return msgsnd(queue(), &message, sizeof message.id, IPC_NOWAIT) == 0 ? 1 : 0;
}

int OS_RecvQueue(int* event, int flags) {
  int id = queue();
  EventMessage message{};
  for (;;) {
    stop_if_requested();
    if (msgrcv(id, &message, sizeof message.id, 1, flags) >= 0) {
      *event = message.id;
      return 1;
    }
    // The interval timer's signal interrupts the wait every second.
    if (errno == EINTR) continue;
    if (flags == IPC_NOWAIT) return 1;
    log_line("OS_RecvQueue Error!");
    return 0;
  }
}
