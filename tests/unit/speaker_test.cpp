#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <tuple>

#include "device/region.h"
#include "platform/board_paths.h"
#include "sound/speaker.h"
#include "tests/unit/captured_log.h"

namespace {

// Up to four attempts on the user's prompt, or else on the factory prompt of the region.
TEST(Speaker, TriesTheUserThenTheFactoryPromptFourTimes) {
  const std::string user = board_path(BoardPath::UserSounds);
  const std::string factory = board_path(BoardPath::FactorySounds);
  // The user's 8-bit prompt is refused before the device is opened; a FIFO without waiting
  // for a writer.
  std::ofstream(user + "8bit.wav", std::ios::binary)
      << std::string("RIFF\x24\0\0\0WAVEfmt \x10\0\0\0", 20) << std::string(14, '\0')
      << std::string("\x08\0", 2);
  mkfifo((user + "fifo.wav").c_str(), 0644);
  const std::string long_region(127, 'r');
  const std::tuple<const char*, std::string, std::string, const char*> rows[] = {
      {"8bit.wav", "prc", user + "8bit.wav", "parse wav file fail "},
      {"fifo.wav", "prc", user + "fifo.wav", "cannot open "},
      {"bye.wav", "prc", factory + "prc/bye.wav", "cannot open "},
      // The path is cut to 157 characters.
      {"bye.wav", long_region, (factory + long_region + "/bye.wav").substr(0, 157), "cannot open "},
  };
  for (const auto& [name, region, path, failure] : rows) {
    std::strcpy(g_region, region.c_str());
    std::vector<std::string> expected = {std::string("Speaker ") + name};
    if (path.rfind(user, 0) != 0)
      expected.insert(expected.end(),
                      {"No customed sound file " + user + name, "try sound file " + path});
    for (int attempt = 0; attempt < 4; ++attempt)
      expected.insert(expected.end(),
                      {"playback: try open " + path, std::string("playback: ") + failure + path});
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
