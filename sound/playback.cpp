#include "sound/playback.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "core/log_line.h"
#include "platform/board_time.h"
#include "sound/alsa_library.h"
#include "sound/pcm_device.h"
#include "sound/wav_header.h"

std::atomic<uint8_t> g_bSoundStop{0};

namespace {

uint8_t first_playback_done = 0;  // playbacks run on one thread at a time

// A prompt is seconds long; a header may announce hours. The board goes down only once the
// prompt has ended, with every daemon stopped and the watchdog no longer fed.
constexpr int64_t kLongestPromptMs = 60 * 1000;

void write_block(snd_pcm_t* pcm, const char* buffer, snd_pcm_uframes_t frames) {
  snd_pcm_sframes_t written = alsa().snd_pcm_writei(pcm, buffer, frames);
  if (written == -EPIPE) {
    log_line("playback: underrun occurred");
    alsa().snd_pcm_prepare(pcm);
  } else if (written < 0) {
    log_line("playback: error from write: ", alsa().snd_strerror(static_cast<int>(written)));
  } else if (static_cast<snd_pcm_uframes_t>(written) != frames) {
    log_line("playback: short write, write ", written, " frames");
  }
}

// Only a regular file is played: opening a FIFO could wait for a writer for ever, and a device
// could feed the chunk walk without end.
int open_prompt(const char* path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat st{};
  if (fd >= 0 && (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
    close(fd);
    fd = -1;
  }
  return fd;
}

// Plays the data of the file open on `fd` (at its first sample), then closes the file and the
// device and frees the transfer buffer.
void stream_wav(int fd, const WavLayout& layout, const PcmOut& out, int volume) {
  set_speaker_volume(volume);
  if (!first_playback_done) {
    board_sleep(1);
    first_playback_done = 1;
  }
  g_bSoundStop.store(0, std::memory_order_relaxed);
  snd_pcm_uframes_t frames = out.size / 2 / layout.format.channels;
  alsa().snd_pcm_pause(out.pcm, 0);
  uint32_t remaining = layout.data_size;
  int64_t cut_at = board_monotonic_ms() + kLongestPromptMs;
  while (g_bSoundStop.load(std::memory_order_relaxed) == 0) {
    if (board_monotonic_ms() >= cut_at) {
      log_line("playback: prompt cut after ", kLongestPromptMs / 1000, " s");
      break;
    }
    size_t want = std::min<size_t>(out.size, remaining);
    size_t got = read_full(fd, out.buffer, want);
    remaining -= static_cast<uint32_t>(got);
    // Always a whole period: the tail of a last, short block holds the block before it.
    bool at_end = got < want;
    if (at_end) log_line("playback: short read");
    if (got > 0) write_block(out.pcm, out.buffer, frames);
    // A file that ends before its data size ends the prompt: nothing else would.
    if (remaining == 0 || at_end) break;
  }
  alsa().snd_pcm_pause(out.pcm, 1);
  close(fd);
  alsa().snd_pcm_drain(out.pcm);
  alsa().snd_pcm_close(out.pcm);
  std::free(out.buffer);
}

}  // namespace

int play_wav(const char* path, int volume) {
  int fd = open_prompt(path);
  log_line("playback: try open ", path);
  if (fd < 0) {
    log_line("playback: cannot open ", path);
    return -1;
  }
  WavLayout layout;
  if (read_wav_header(fd, &layout) != 0) {
    log_line("playback: parse wav file fail ", path);
    close(fd);
    return -1;
  }
  PcmOut out;
  if (init_pcm(layout.format.sample_rate, layout.format.channels, &out) < 0) {
    log_line("playback: init pcm para fail");
    close(fd);
    return -1;
  }
  stream_wav(fd, layout, out, volume);
  return 0;
}
