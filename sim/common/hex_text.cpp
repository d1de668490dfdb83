#include "sim/common/hex_text.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace sim {

std::string to_hex(const void* data, size_t size) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    unsigned char byte = static_cast<const unsigned char*>(data)[i];
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

bool from_hex(const std::string& digits, std::string* bytes) {
  if (digits.size() % 2 != 0) return false;
  bytes->clear();
  for (size_t i = 0; i < digits.size(); i += 2) {
    std::string pair = digits.substr(i, 2);
    if (!std::isxdigit(static_cast<unsigned char>(pair[0])) ||
        !std::isxdigit(static_cast<unsigned char>(pair[1])))
      return false;
    bytes->push_back(static_cast<char>(std::strtoul(pair.c_str(), nullptr, 16)));
  }
  return true;
}

std::string packet_text(const IpcPacket& packet) {
  char head[32];
  std::snprintf(head, sizeof head, "0x%08X %u ", packet.id, packet.length);
  return head + to_hex(packet.payload, sizeof packet.payload);
}

}  // namespace sim
