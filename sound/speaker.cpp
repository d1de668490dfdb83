#include "sound/speaker.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/log_line.h"
#include "core/threads.h"
#include "device/region.h"
#include "ipc/receive_thread.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"
#include "sound/playback.h"

namespace {

constexpr int kVolumePercent = 80;
constexpr int kAttempts = 4;

pthread_t snd_thread;

// Sized by measurement (a painted stack, the deepest byte touched): a whole playback peaks at
// 14 KiB on the simulated board's plugins, and ALSA's open with the full system configuration
// (alsa.conf and its card look-ups) at 18 KiB, 20 KiB with the sanitizers. A real card's plugin
// chain could not be measured here: 128 KiB leaves seven times the measured peak for it, and
// the thread lives only for the seconds of a shutdown.
constexpr size_t kSoundStackBytes = 128 * 1024 * kSanitizerStackFactor;

// pthread_create's result; ESRCH while no thread is there to join, so that a failed creation
// is reported by the join lines without joining a thread that does not exist.
int snd_thread_created = ESRCH;

// The name comes from another daemon's message: it may name a file of the prompt folders
// and nothing else.
bool plain_file_name(const char* name) {
  return name[0] != '\0' && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
         std::strchr(name, '/') == nullptr;
}

void* play_sound_thread(void*) {
  DoSpeaker(requested_prompt().c_str());
  return nullptr;
}

}  // namespace

int DoSpeaker(const char* name) {
  log_line("Speaker ", name);
  if (!plain_file_name(name)) {
    log_line("Speaker: not a plain file name, nothing played");
    return -1;
  }
  char path[158];  // longer paths are cut
  std::snprintf(path, sizeof path, "%s%s", board_path(BoardPath::UserSounds), name);
  if (access(path, F_OK) != 0) {
    log_line("No customed sound file ", path);
    // Not checked for existence: a missing factory prompt fails as a playback.
    std::snprintf(path, sizeof path, "%s%s/%s", board_path(BoardPath::FactorySounds), g_region,
                  name);
    log_line("try sound file ", path);
  }
  int result = play_wav(path, kVolumePercent);
  for (int attempt = 1; attempt < kAttempts && result < 0; ++attempt) {
    board_sleep(1);
    result = play_wav(path, kVolumePercent);
  }
  return result;
}

int create_snd_thread() {
  snd_thread_created = start_thread(&snd_thread, play_sound_thread, kSoundStackBytes);
  return snd_thread_created;
}

void destroy_snd_thread() {
  int result = snd_thread_created == 0 ? pthread_join(snd_thread, nullptr) : ESRCH;
  snd_thread_created = ESRCH;
  if (result != 0) log_line("destroy_snd_thread failed = ", result);
  log_line("destroy_snd_thread succ = ", result);
}
