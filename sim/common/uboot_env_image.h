// A U-Boot environment image, as the boot loader and libubootenv expect it on the board's
// storage: CRC32 of the data area (little-endian), one flags byte in a redundant copy, then
// "name=value\0" entries ended by an extra '\0' and padded with zeros to the given size.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace sim {

using EnvVars = std::vector<std::pair<std::string, std::string>>;

// Writes one copy of the environment to `path` (temp + rename). `flags` is the redundant
// copy's generation counter, ignored for a single copy. False when a name is empty or holds
// '=', a name or value holds '\0', the variables do not fit, or the file cannot be written.
bool write_uboot_env(const std::string& path, size_t size, bool redundant, const EnvVars& vars,
                     uint8_t flags = 1);

// The CRC32 (IEEE 802.3, as zlib) that guards the data area.
uint32_t uboot_env_crc32(const uint8_t* data, size_t size);

}  // namespace sim
