#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/log_line.h"
#include "sound/pcm_device.h"
#include "sound/playback.h"
#include "sound/wav_header.h"
#include "sound/wav_stream.h"

namespace {

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
