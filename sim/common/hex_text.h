// Bytes as hex text and back, as the simulator's commands and records write them.
#pragma once
#include <cstddef>
#include <string>

#include "platform/nodeipc.h"

namespace sim {

// Two lower-case hex digits per byte.
std::string to_hex(const void* data, size_t size);

// Two hex digits per byte; false for any other character or an odd count of digits.
bool from_hex(const std::string& digits, std::string* bytes);

// "0x<ID> <length> <payload hex>": a packet as `recv` prints it and the stub daemons record it.
std::string packet_text(const IpcPacket& packet);

}  // namespace sim
