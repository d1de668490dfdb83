#include "sound/wav_header.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/log_line.h"

namespace {

constexpr uint32_t kRiffHeaderBytes = 12;
constexpr uint32_t kChunkHeaderBytes = 8;
constexpr uint32_t kFormatBytes = 16;
constexpr uint32_t kExtendedFormatBytes = 18;

uint32_t le32(const unsigned char* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// The format chunk's body: false when the format cannot be played.
bool read_format(int fd, uint32_t size, WavLayout* layout) {
  if (read_full(fd, &layout->format, kFormatBytes) < kFormatBytes) {
    static const char kShort[] = "playback: cannot read format chunk\n";
    ssize_t ignored = write(STDERR_FILENO, kShort, sizeof kShort - 1);
    (void)ignored;
  }
  if (layout->format.bits_per_sample != 16) return false;
  if (size == kExtendedFormatBytes) {
    log_line("playback: this wav file has extra infomation, skip it");
    lseek(fd, kExtendedFormatBytes - kFormatBytes, SEEK_CUR);
  }
  // Any other size is counted whole while only 16 bytes were read: the next chunk header is
  // then read from inside this chunk.
  layout->header_length += size;
  return true;
}

// The chunks up to the data chunk: false when the file cannot be played.
bool walk_chunks(int fd, WavLayout* layout) {
  for (;;) {
    unsigned char header[kChunkHeaderBytes];
    if (read_full(fd, header, sizeof header) < sizeof header) {
      log_line("playback: read chunk id fail");
      return false;
    }
    layout->header_length += kChunkHeaderBytes;
    uint32_t size = le32(header + 4);
    layout->data_size = size;
    if (std::memcmp(header, "fmt ", 4) == 0) {
      if (!read_format(fd, size, layout)) return false;
    } else if (std::memcmp(header, "data", 4) == 0) {
      log_line("playback: find the last data chunk");
      return true;
    } else {
      log_line("playback: find a junk chunk, skip it");
      // Sizes are unsigned: a skip only ever moves forward, so the walk ends at the file's end.
      lseek(fd, static_cast<off_t>(size), SEEK_CUR);
      layout->header_length += size;
    }
    if (layout->total_length <= layout->header_length) return true;
  }
}

}  // namespace

size_t read_full(int fd, void* buffer, size_t count) {
  size_t done = 0;
  while (done < count) {
    ssize_t n = read(fd, static_cast<char*>(buffer) + done, count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  return done;
}

int read_wav_header(int fd, WavLayout* layout) {
  *layout = WavLayout{};
  unsigned char riff[kRiffHeaderBytes];
  if (read_full(fd, riff, sizeof riff) < sizeof riff) {
    log_line("playback: cannot read riff header");
    return -1;
  }
  layout->header_length = kRiffHeaderBytes;
  layout->total_length = le32(riff + 4) + 8;
  if (layout->total_length > kRiffHeaderBytes && !walk_chunks(fd, layout)) return -1;
  log_line("playback: header length: ", layout->header_length, ", total length: ",
           layout->total_length);
  if (layout->total_length <= layout->header_length) return -1;
  if (static_cast<int32_t>(layout->data_size) <= 0) return -1;
  // Without a format chunk there is no channel count to size the blocks by.
  if (layout->format.channels == 0) return -1;
  return 0;
}
