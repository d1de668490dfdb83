// The chunk walk over a RIFF/WAVE prompt: the format record, where the samples start and how
// many bytes of them there are.
#pragma once
#include <cstddef>
#include <cstdint>

// The "fmt " chunk's first 16 bytes, as they lie in the file (little-endian, as the board).
struct wav_format_st {
  uint16_t audio_format;  // not checked
  uint16_t channels;
  uint32_t sample_rate;
  uint32_t byte_rate;     // not used
  uint16_t block_align;   // not used
  uint16_t bits_per_sample;
};
static_assert(sizeof(wav_format_st) == 16, "the format record is read as it lies in the file");

struct WavLayout {
  wav_format_st format{};
  uint32_t header_length = 0;  // counted as the walk counts it: chunk headers and skipped bodies
  uint32_t total_length = 0;   // RIFF size + 8
  uint32_t data_size = 0;      // the size field of the last chunk read
};

// Walks the chunks of the file open on `fd`, logging each decision, and leaves the file at the
// first sample. 0, or -1 when the file cannot be played.
int read_wav_header(int fd, WavLayout* layout);

// Reads up to `count` bytes, fewer only at the end of the file or on an error.
size_t read_full(int fd, void* buffer, size_t count);
