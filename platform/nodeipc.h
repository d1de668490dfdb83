// The IPC library of the robot's daemons (libnodeipc). The vendor's on the robot, or the
// open implementation in platform/open/.
#pragma once
#include <cstdint>

extern "C" {
// One message, 44 bytes, little-endian. The id holds the receiving module in bits 31-24,
// the sending module in bits 23-16 and the message number in bits 15-0.
struct IpcPacket {
  uint32_t id;
  uint32_t reserved;
  uint32_t length;
  uint8_t payload[32];
};

// Send options: byte 0 set to 1, the rest 0.
struct IpcSendOptions {
  uint8_t option[4];
};

// Blocks until a message for this program's module arrives; positive count on success.
int RecvPacket(IpcPacket* packet);
// Negative on failure (errno set), 0 or positive on success.
int SendPacket(IpcPacket* packet, IpcSendOptions* options);

// The module whose messages RecvPacket returns. Each program defines it; the open
// implementation routes by it, the vendor's library does not read it.
extern int nodeipc_module;
}

static_assert(sizeof(IpcPacket) == 44, "an IPC packet is 44 bytes");
