#include "core/event_queue.h"

#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "core/log_line.h"
#include "core/signals.h"

namespace {

constexpr key_t kQueueKey = static_cast<key_t>(0x80001000);
// Only the supervisor posts: anyone who could would power the robot off.
constexpr int kQueueMode = 0600;
constexpr long kEventType = 1;
constexpr long kWakeType = 2;  // carries no event

struct EventMessage {
  long type;
  int32_t id;
  char excess[4];  // shows a message longer than an event
};

int dropped = 0;

// Looked up on every use, so a queue removed from outside is created afresh.
int queue() { return msgget(kQueueKey, IPC_CREAT | kQueueMode); }

// The queue under the key must be the supervisor's and closed to others. One that another
// user made is removed with what it holds; our own, left open by an older version, is closed.
int own_queue() {
  int id = queue();
  struct msqid_ds info {};
  if (id < 0 || msgctl(id, IPC_STAT, &info) != 0) return id;
  static const uid_t self = geteuid();
  if (info.msg_perm.cuid != self || info.msg_perm.uid != self) {
    log_line("OS_RecvQueue: event queue of uid ", info.msg_perm.cuid, " removed");
    msgctl(id, IPC_RMID, nullptr);
    return queue();
  }
  if ((info.msg_perm.mode & 0777) != kQueueMode) {
    info.msg_perm.mode = kQueueMode;
    msgctl(id, IPC_SET, &info);
  }
  return id;
}

}  // namespace

int OS_SendQueue(int event) {
  EventMessage message{kEventType, event, {}};
  return msgsnd(queue(), &message, sizeof message.id, IPC_NOWAIT) == 0 ? 1 : 0;
}

int OS_RecvQueue(int* event, int flags) {
  int id = own_queue();
  for (;;) {
    stop_if_requested();
    EventMessage message{};
    // Any type and any size is taken, so that no bad message can stay at the head for ever.
    ssize_t size = msgrcv(id, &message, sizeof message.id + sizeof message.excess, 0,
                          flags | MSG_NOERROR);
    if (size >= 0) {
      if (message.type == kWakeType && size == 0) continue;
      if (message.type == kEventType && size <= static_cast<ssize_t>(sizeof message.id)) {
        *event = message.id;
        return 1;
      }
      log_line("OS_RecvQueue drop bad event: type ", message.type, " size ", size, ", dropped ",
               ++dropped);
      continue;
    }
    // The interval timer's signal interrupts the wait every second.
    if (errno == EINTR) continue;
    if (flags == IPC_NOWAIT) return 1;
    log_line("OS_RecvQueue Error!");
    return 0;
  }
}

void wake_event_wait() {
  long type = kWakeType;
  msgsnd(queue(), &type, 0, IPC_NOWAIT);
}
