// ALSA, loaded when the first prompt plays instead of with the supervisor: mapped from the
// start, the library (and the maths library it brings along) would stay locked in memory for a
// shutdown that may never come.
#pragma once
#include <alsa/asoundlib.h>

#define CUSTODO_ALSA_FUNCTIONS(X)                                                            \
  X(snd_strerror)                                                                            \
  X(snd_pcm_open) X(snd_pcm_close) X(snd_pcm_pause) X(snd_pcm_prepare) X(snd_pcm_drain)      \
  X(snd_pcm_writei) X(snd_pcm_hw_params_sizeof) X(snd_pcm_hw_params_any)                     \
  X(snd_pcm_hw_params) X(snd_pcm_hw_params_set_access) X(snd_pcm_hw_params_set_format)       \
  X(snd_pcm_hw_params_set_channels) X(snd_pcm_hw_params_set_rate_near)                       \
  X(snd_pcm_hw_params_get_buffer_size_max) X(snd_pcm_hw_params_set_buffer_size_near)         \
  X(snd_pcm_hw_params_get_period_size_min) X(snd_pcm_hw_params_set_period_size_near)         \
  X(snd_pcm_hw_params_get_period_size)                                                       \
  X(snd_mixer_open) X(snd_mixer_attach) X(snd_mixer_selem_register) X(snd_mixer_load)        \
  X(snd_mixer_close) X(snd_mixer_find_selem) X(snd_mixer_selem_id_sizeof)                    \
  X(snd_mixer_selem_id_set_index) X(snd_mixer_selem_id_set_name)                             \
  X(snd_mixer_selem_get_playback_volume_range) X(snd_mixer_selem_set_playback_volume_all)    \
  X(snd_mixer_selem_get_playback_volume)

struct AlsaLibrary {
#define CUSTODO_ALSA_POINTER(name) decltype(&::name) name = nullptr;
  CUSTODO_ALSA_FUNCTIONS(CUSTODO_ALSA_POINTER)
#undef CUSTODO_ALSA_POINTER
};

// Loads the library the first time; nullptr, with the loader's message in *error, when it
// cannot be loaded.
const AlsaLibrary* load_alsa(const char** error);

// The library, once load_alsa has succeeded.
const AlsaLibrary& alsa();
