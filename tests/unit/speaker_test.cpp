#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <tuple>

#include "device/region.h"
#include "platform/board_paths.h"
#include "sound/speaker.h"
#include "tests/unit/helpers.h"

namespace {

// Up to four attempts on the user's prompt, or else on the factory prompt of the region.
TEST(Speaker, TriesTheUserThenTheFactoryPromptFourTimes) {
  const std::string user = board_path(BoardPath::UserSounds);
  const std::string factory = board_path(BoardPath::FactorySounds);
  // The user's FIFO is refused without waiting for a writer.
  mkfifo((user + "fifo.wav").c_str(), 0644);
  const std::string long_region(127, 'r');
  const std::tuple<const char*, std::string, std::string> rows[] = {
      {"fifo.wav", "prc", user + "fifo.wav"},
      {"bye.wav", "prc", factory + "prc/bye.wav"},
      // The path is cut to 157 characters.
      {"bye.wav", long_region, (factory + long_region + "/bye.wav").substr(0, 157)},
  };
  for (const auto& [name, region, path] : rows) {
    std::strcpy(g_region, region.c_str());
    std::vector<std::string> expected = {std::string("Speaker ") + name};
    if (path.rfind(user, 0) != 0)
      expected.insert(expected.end(), {"No customed sound file " + user + name, "try sound file " + path});
    for (int attempt = 0; attempt < 4; ++attempt)
      expected.insert(expected.end(), {"playback: try open " + path, "playback: cannot open " + path});
    EXPECT_EQ(captured_log([&] { EXPECT_EQ(DoSpeaker(name), -1); }), expected);
  }
  g_region[0] = '\0';
}

// A thread that was never created is not joined: the join lines report it as missing.
TEST(Speaker, NoThreadToJoin) {
  EXPECT_EQ(captured_log(destroy_snd_thread),
            (std::vector<std::string>{"destroy_snd_thread failed = 3",
                                      "destroy_snd_thread succ = 3"}));
}

}  // namespace
