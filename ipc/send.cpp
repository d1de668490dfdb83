#include "ipc/send.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "core/log_line.h"
#include "platform/nodeipc.h"

void send_ipc_msg(int id, const void* data, int length) {
  IpcPacket packet{};
  packet.id = static_cast<uint32_t>(id);
  packet.length = static_cast<uint32_t>(length);
  if (data != nullptr) {
    if (length < 0 || length > static_cast<int>(sizeof packet.payload)) std::abort();
    std::memcpy(packet.payload, data, static_cast<size_t>(length));
  }
  IpcSendOptions options{{1, 0, 0, 0}};
  int result = SendPacket(&packet, &options);
  int error = errno;
  if (result < 0)
    log_line("watchdog Failed to send message. error code: ", result, " errno: ", error);
  else
    log_line("watchdog send ipc msg = ", id);
}
