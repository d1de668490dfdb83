// The playback device: ALSA's "default" PCM set up for a prompt, its transfer buffer, and the
// speaker's volume.
#pragma once
#include <alsa/asoundlib.h>

#include <cstddef>

struct PcmOut {
  snd_pcm_t* pcm = nullptr;
  char* buffer = nullptr;  // one period of samples, malloc'ed
  size_t size = 0;         // channels x period frames x 2 bytes
};

// Opens and configures the device for 16-bit interleaved samples: the transfer size in bytes,
// or -1 after logging why not.
int init_pcm(unsigned rate, unsigned channels, PcmOut* out);

// Sets the speaker element's playback volume to `percent` of its maximum; without the element
// nothing is done.
void set_speaker_volume(int percent);
