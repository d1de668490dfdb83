// The board's speaker: the ALSA PCM type "custodo_sim". It takes interleaved signed 16-bit
// samples, writes them to sim/pcm.raw (emptied at each open) and consumes them at the sample
// rate, CUSTODO_SIM_TIMESCALE times faster, so that a prompt lasts its length in board time.
// The buffer holds at most 131072 bytes (65536 frames of a mono prompt) and the period is
// always 512 bytes, so that the player's limits and block size can be checked. While
// sim/sound/pcm-fail exists the device cannot be opened. Opens, parameters and closes are
// recorded in sim/sound.log.
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string>

#include "sim/common/sim_files.h"

namespace {

constexpr unsigned kPeriodBytes = 512;
constexpr unsigned kMaxBufferBytes = 65536 * 2;

struct Speaker {
  snd_pcm_ioplug_t io{};
  int out = -1;         // sim/pcm.raw
  uint64_t frames = 0;  // played since the open
};

Speaker* speaker_of(snd_pcm_ioplug_t* io) { return static_cast<Speaker*>(io->private_data); }

int start(snd_pcm_ioplug_t*) { return 0; }
int stop(snd_pcm_ioplug_t*) { return 0; }

// Whatever was written has been played: the transfer itself takes the time.
snd_pcm_sframes_t pointer(snd_pcm_ioplug_t* io) {
  return static_cast<snd_pcm_sframes_t>(io->appl_ptr);
}

void sleep_for_frames(snd_pcm_uframes_t frames, unsigned rate) {
  uint64_t ns = static_cast<uint64_t>(frames) * 1000000000ull / rate / sim::timescale();
  timespec left{static_cast<time_t>(ns / 1000000000ull), static_cast<long>(ns % 1000000000ull)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

snd_pcm_sframes_t transfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
                           snd_pcm_uframes_t offset, snd_pcm_uframes_t size) {
  Speaker* s = speaker_of(io);
  size_t frame_bytes = io->channels * 2;
  const char* data = static_cast<const char*>(areas[0].addr) + (areas[0].first / 8) +
                     offset * frame_bytes;
  size_t left = size * frame_bytes;
  while (left > 0) {
    ssize_t n = write(s->out, data, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return -EIO;
    data += n;
    left -= static_cast<size_t>(n);
  }
  s->frames += size;
  sleep_for_frames(size, io->rate);
  return static_cast<snd_pcm_sframes_t>(size);
}

int hw_params(snd_pcm_ioplug_t* io, snd_pcm_hw_params_t*) {
  sim::record(sim::kSoundLog, "pcm params rate " + std::to_string(io->rate) + " channels " +
                                  std::to_string(io->channels) + " buffer " +
                                  std::to_string(io->buffer_size) + " period " +
                                  std::to_string(io->period_size));
  return 0;
}

int close_speaker(snd_pcm_ioplug_t* io) {
  Speaker* s = speaker_of(io);
  sim::record(sim::kSoundLog, "pcm close " + std::to_string(s->frames) + " frames");
  close(s->out);
  close(io->poll_fd);
  delete s;
  return 0;
}

const snd_pcm_ioplug_callback_t kCallbacks = [] {
  snd_pcm_ioplug_callback_t c{};
  c.start = start;
  c.stop = stop;
  c.pointer = pointer;
  c.transfer = transfer;
  c.hw_params = hw_params;
  c.close = close_speaker;
  return c;
}();

int set_constraints(snd_pcm_ioplug_t* io) {
  static const unsigned kAccess[] = {SND_PCM_ACCESS_RW_INTERLEAVED};
  static const unsigned kFormats[] = {SND_PCM_FORMAT_S16_LE};
  static const unsigned kPeriod[] = {kPeriodBytes};
  int err = 0;
  if ((err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_ACCESS, 1, kAccess)) < 0 ||
      (err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_FORMAT, 1, kFormats)) < 0 ||
      (err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_CHANNELS, 1, 2)) < 0 ||
      (err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_RATE, 8000, 96000)) < 0 ||
      (err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, 1, kPeriod)) < 0 ||
      (err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_BUFFER_BYTES, 2 * kPeriodBytes,
                                             kMaxBufferBytes)) < 0)
    return err;
  return 0;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

SND_PCM_PLUGIN_DEFINE_FUNC(custodo_sim) {
  (void)root;
  (void)conf;
  if (stream != SND_PCM_STREAM_PLAYBACK) return -EINVAL;
  if (access(sim::file(sim::kPcmFail).c_str(), F_OK) == 0) {
    sim::record(sim::kSoundLog, "pcm open refused");
    return -ENODEV;
  }
  Speaker* s = new Speaker;
  s->out = open(sim::file(sim::kPcmFile).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  // Always writable: a blocked writer never waits on it, as the samples go at once.
  int wakeup = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (s->out < 0 || wakeup < 0) {
    if (s->out >= 0) close(s->out);
    if (wakeup >= 0) close(wakeup);
    delete s;
    return -EIO;
  }
  s->io.version = SND_PCM_IOPLUG_VERSION;
  s->io.name = "Custodo simulated speaker";
  s->io.flags = SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
  s->io.poll_fd = wakeup;
  s->io.poll_events = POLLOUT;
  s->io.callback = &kCallbacks;
  s->io.private_data = s;
  int err = snd_pcm_ioplug_create(&s->io, name, stream, mode);
  if (err < 0) {
    close(s->out);
    close(wakeup);
    delete s;
    return err;
  }
  if ((err = set_constraints(&s->io)) < 0) {
    snd_pcm_ioplug_delete(&s->io);
    return err;
  }
  sim::record(sim::kSoundLog, "pcm open");
  *pcmp = s->io.pcm;
  return 0;
}
SND_PCM_PLUGIN_SYMBOL(custodo_sim)

}  // extern "C"
#pragma GCC visibility pop
