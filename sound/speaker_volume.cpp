#include <vector>

#include "core/log_line.h"
#include "sound/alsa_library.h"
#include "sound/pcm_device.h"

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
