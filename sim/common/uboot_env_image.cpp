#include "sim/common/uboot_env_image.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace sim {

uint32_t uboot_env_crc32(const uint8_t* data, size_t size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

namespace {

bool valid_var(const std::pair<std::string, std::string>& var) {
  const std::string& name = var.first;
  return !name.empty() && name.find('=') == std::string::npos &&
         name.find('\0') == std::string::npos && var.second.find('\0') == std::string::npos;
}

bool write_file(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::string tmp = path + ".tmp";
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  bool ok = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  ok = fsync(fd) == 0 && ok;
  ok = close(fd) == 0 && ok;
  if (ok && std::rename(tmp.c_str(), path.c_str()) == 0) return true;
  unlink(tmp.c_str());
  return false;
}

}  // namespace

bool write_uboot_env(const std::string& path, size_t size, bool redundant, const EnvVars& vars,
                     uint8_t flags) {
  const size_t header = redundant ? 5 : 4;
  if (size <= header) return false;
  std::vector<uint8_t> image(size, 0);
  size_t at = header;
  for (const auto& var : vars) {
    if (!valid_var(var)) return false;
    std::string entry = var.first + "=" + var.second;
    // The entry, its '\0' and the '\0' that ends the list must fit.
    if (entry.size() + 2 > size - at) return false;
    std::copy(entry.begin(), entry.end(), image.begin() + static_cast<ptrdiff_t>(at));
    at += entry.size() + 1;
  }
  uint32_t crc = uboot_env_crc32(image.data() + header, size - header);
  for (int i = 0; i < 4; ++i) image[static_cast<size_t>(i)] = static_cast<uint8_t>(crc >> (8 * i));
  if (redundant) image[4] = flags;
  return write_file(path, image);
}

}  // namespace sim
