#include "sound/speaker.h"

#include <unistd.h>

#include <cstdio>

#include "core/log_line.h"
#include "device/region.h"
#include "platform/board_paths.h"
#include "platform/board_time.h"
#include "sound/playback.h"

namespace {

constexpr int kVolumePercent = 80;
constexpr int kAttempts = 4;

}  // namespace

int DoSpeaker(const char* name) {
  log_line("Speaker ", name);
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
