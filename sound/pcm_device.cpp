#include "sound/pcm_device.h"

#include <cstdlib>
#include <vector>

#include "core/log_line.h"
#include "sound/alsa_library.h"

namespace {

constexpr snd_pcm_uframes_t kBufferFramesCap = 1024;
constexpr snd_pcm_uframes_t kFallbackPeriodFrames = 32;

// The transfer buffer is sized from the file's channel count and 2-byte samples: a device
// that takes another layout would read past it, so these must hold as asked.
int set_layout(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, unsigned channels) {
  int err = alsa().snd_pcm_hw_params_set_access(pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED);
  if (err >= 0) err = alsa().snd_pcm_hw_params_set_format(pcm, params, SND_PCM_FORMAT_S16_LE);
  if (err >= 0) err = alsa().snd_pcm_hw_params_set_channels(pcm, params, channels);
  return err;
}

void set_sizes(snd_pcm_t* pcm, snd_pcm_hw_params_t* params) {
  snd_pcm_uframes_t frames = 0;
  alsa().snd_pcm_hw_params_get_buffer_size_max(params, &frames);
  log_line("playback: max buffer size: ", frames);
  if (frames > kBufferFramesCap) frames = kBufferFramesCap;
  alsa().snd_pcm_hw_params_set_buffer_size_near(pcm, params, &frames);
  log_line("playback: reliable buffer size: ", frames);

  int dir = 0;
  snd_pcm_uframes_t period = 0;
  alsa().snd_pcm_hw_params_get_period_size_min(params, &period, &dir);
  log_line("playback: min period size: ", period);
  if (period == 0) period = kFallbackPeriodFrames;
  alsa().snd_pcm_hw_params_set_period_size_near(pcm, params, &period, &dir);
}

}  // namespace

int init_pcm(unsigned rate, unsigned channels, PcmOut* out) {
  const char* error = nullptr;
  if (load_alsa(&error) == nullptr) {
    log_line("playback: unable to open pcm device: ", error);
    return -1;
  }
  snd_pcm_t* pcm = nullptr;
  int err = alsa().snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, 0);
  if (err < 0) {
    log_line("playback: unable to open pcm device: ", alsa().snd_strerror(err));
    return -1;
  }
  std::vector<char> space(alsa().snd_pcm_hw_params_sizeof());
  auto* params = reinterpret_cast<snd_pcm_hw_params_t*>(space.data());
  alsa().snd_pcm_hw_params_any(pcm, params);
  err = set_layout(pcm, params, channels);
  if (err >= 0) {
    alsa().snd_pcm_hw_params_set_rate_near(pcm, params, &rate, nullptr);
    set_sizes(pcm, params);
    err = alsa().snd_pcm_hw_params(pcm, params);
  }
  if (err < 0) {
    // Closed, so that a retry can open it again: a hardware device is not shared.
    log_line("playback: unable to set hw parameters: ", alsa().snd_strerror(err));
    alsa().snd_pcm_close(pcm);
    return -1;
  }
  int dir = 0;
  snd_pcm_uframes_t period = 0;
  alsa().snd_pcm_hw_params_get_period_size(params, &period, &dir);
  log_line("playback: reliable period size: ", period);
  size_t size = channels * period * 2;
  log_line("playback: malloc tx buffer size:  ", size);
  char* buffer = static_cast<char*>(std::malloc(size));
  if (buffer == nullptr) {
    log_line("playback: malloc buffer size: ", size);
    alsa().snd_pcm_close(pcm);
    return -1;
  }
  alsa().snd_pcm_pause(pcm, 1);
  *out = PcmOut{pcm, buffer, size};
  return static_cast<int>(size);
}

void set_speaker_volume(int percent) {
  snd_mixer_t* mixer = nullptr;
  if (alsa().snd_mixer_open(&mixer, 0) < 0) return;
  // Unchecked: a mixer that cannot be attached or loaded has no element, and is left alone
  // like one without the speaker's.
  alsa().snd_mixer_attach(mixer, "default");
  alsa().snd_mixer_selem_register(mixer, nullptr, nullptr);
  alsa().snd_mixer_load(mixer);
  std::vector<char> space(alsa().snd_mixer_selem_id_sizeof());
  auto* id = reinterpret_cast<snd_mixer_selem_id_t*>(space.data());
  alsa().snd_mixer_selem_id_set_index(id, 0);
  alsa().snd_mixer_selem_id_set_name(id, "speaker volume control");
  snd_mixer_elem_t* element = alsa().snd_mixer_find_selem(mixer, id);
  if (element != nullptr) {
    long min = 0, max = 0;
    alsa().snd_mixer_selem_get_playback_volume_range(element, &min, &max);
    // The range's minimum is not taken into account: the percentage is of the maximum.
    alsa().snd_mixer_selem_set_playback_volume_all(element, max * percent / 100);
    long current = 0;
    alsa().snd_mixer_selem_get_playback_volume(element, SND_MIXER_SCHN_FRONT_LEFT, &current);
    log_line("playback: current volume ", current);
  }
  alsa().snd_mixer_close(mixer);
}
