// Streaming a parsed prompt to the set-up device, one period at a time.
#pragma once
#include "sound/pcm_device.h"
#include "sound/wav_header.h"

// Plays the data of the file open on `fd` (at its first sample), then closes the file and the
// device and frees the transfer buffer.
void stream_wav(int fd, const WavLayout& layout, const PcmOut& out, int volume);
