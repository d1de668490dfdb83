#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <tuple>

#include "sound/wav_header.h"
#include "tests/unit/helpers.h"

namespace {

std::string le(uint32_t value, int bytes) {
  std::string out;
  for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i));
  return out;
}

std::string chunk(const char* id, uint32_t size, const std::string& body) {
  return std::string(id, 4) + le(size, 4) + body;
}

std::string format(uint16_t bits, uint32_t size = 16) {
  std::string body = le(1, 2) + le(1, 2) + le(16000, 4) + le(32000, 4) + le(2, 2) + le(bits, 2);
  return chunk("fmt ", size, body + std::string(size > 16 ? size - 16 : 0, '\0'));
}

std::string data(uint32_t size, size_t bytes = 100) {
  return chunk("data", size, std::string(bytes, 'x'));
}

// A RIFF file whose size field covers `chunks`, less `short_by` bytes.
std::string riff(const std::string& chunks, uint32_t short_by = 0) {
  return "RIFF" + le(static_cast<uint32_t>(4 + chunks.size() - short_by), 4) + "WAVE" + chunks;
}

int memory_file(const std::string& bytes) {
  int fd = memfd_create("wav", MFD_CLOEXEC);
  EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  lseek(fd, 0, SEEK_SET);
  return fd;
}

const char* const kData = "playback: find the last data chunk";
const char* const kJunk = "playback: find a junk chunk, skip it";
const char* const kExtra = "playback: this wav file has extra infomation, skip it";

std::string lengths(uint64_t header, uint64_t total) {
  return "playback: header length: " + std::to_string(header) + ", total length: " +
         std::to_string(total);
}

TEST(WavHeader, WalksTheChunks) {
  const std::string fmt_data = format(16) + data(100);
  // What the file is, its bytes, the walk's result and its lines.
  const std::tuple<const char*, std::string, int, std::vector<std::string>> rows[] = {
      {"fmt 16, data", riff(fmt_data), 0, {kData, lengths(44, 144)}},
      {"list chunk between", riff(format(16) + chunk("LIST", 10, std::string(10, 'l')) + data(100)),
       0, {kJunk, kData, lengths(62, 162)}},
      // Bodies are not padded: an odd size is skipped as it stands.
      {"odd junk first", riff(chunk("junk", 3, "abc") + fmt_data), 0,
       {kJunk, kData, lengths(55, 155)}},
      {"fmt 18", riff(format(16, 18) + data(100)), 0, {kExtra, kData, lengths(46, 146)}},
      {"8 bits", riff(format(8) + data(100)), -1, {}},
      // Counted whole, read 16 bytes: the next header is read from the chunk's last 4 bytes and
      // the data chunk's id, whose letters make a size past the end.
      {"fmt 20", riff(format(16, 20) + data(100)), -1, {kJunk, lengths(48ull + 0x61746164, 148)}},
      {"file ends before the RIFF size", riff(format(16)).replace(4, 4, le(136, 4)), -1,
       {"playback: read chunk id fail"}},
      // The short read is reported on standard error only; the missing bits refuse the file.
      {"file ends in fmt", riff(format(16)).substr(0, 30), -1, {}},
      {"RIFF header cut", "RIFF\x88", -1, {"playback: cannot read riff header"}},
      {"data size 0", riff(format(16) + data(0, 10)), -1, {kData, lengths(44, 54)}},
      {"data size negative", riff(format(16) + data(0x80000000u)), -1, {kData, lengths(44, 144)}},
      // Without a format there is no channel count to size the blocks by.
      {"no fmt chunk", riff(data(100)), -1, {kData, lengths(20, 120)}},
  };
  for (const auto& [what, file, expected, log] : rows) {
    int fd = memory_file(file);
    WavLayout layout;
    int result = 0;
    EXPECT_EQ(captured_log([&] { result = read_wav_header(fd, &layout); }), log) << what;
    EXPECT_EQ(result, expected) << what;
    if (result == 0) {
      EXPECT_EQ(std::tie(layout.data_size, layout.format.channels, layout.format.sample_rate),
                std::make_tuple(100u, uint16_t{1}, 16000u));
      EXPECT_EQ(lseek(fd, 0, SEEK_CUR), static_cast<off_t>(file.size() - 100)) << what;
    }
    close(fd);
  }
}

}  // namespace
