// Playing a WAV prompt of 16-bit samples through the speaker. One playback at a time.
#pragma once
#include <atomic>
#include <cstdint>

// Non-zero ends a playback before its next block. Cleared when a playback starts streaming.
extern std::atomic<uint8_t> g_bSoundStop;

// Plays the file at `volume` percent of the speaker's maximum: 0 after a complete or stopped
// playback, -1 on a failure before streaming began.
int play_wav(const char* path, int volume);
