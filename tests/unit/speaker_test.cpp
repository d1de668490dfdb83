#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "device/region.h"
#include "platform/board_paths.h"
#include "sound/speaker.h"
#include "tests/unit/captured_log.h"

namespace {

// Up to four attempts on the user's prompt, or else on the factory prompt of the region.
TEST(Speaker, TriesTheUserThenTheFactoryPromptFourTimes) {
  const std::string user = board_path(BoardPath::UserSounds);
  const std::string factory = board_path(BoardPath::FactorySounds);
  // An 8-bit prompt of the user's: found, and refused at each attempt.
  std::ofstream(user + "mine.wav", std::ios::binary)
      << std::string("RIFF\x24\0\0\0WAVEfmt \x10\0\0\0", 20) << std::string(14, '\0')
      << std::string("\x08\0", 2);
  const std::string long_region(127, 'r');
  struct Row {
    const char* name;
    std::string region, path;
  };
  const Row rows[] = {
      {"mine.wav", "prc", user + "mine.wav"},
      {"bye.wav", "prc", factory + "prc/bye.wav"},
      // The path is cut to 157 characters.
      {"bye.wav", long_region, (factory + long_region + "/bye.wav").substr(0, 157)},
  };
  for (const Row& row : rows) {
    std::strcpy(g_region, row.region.c_str());
    std::vector<std::string> expected = {std::string("Speaker ") + row.name};
    bool found = row.path.rfind(user, 0) == 0;
    if (!found)
      expected.insert(expected.end(), {"No customed sound file " + user + row.name,
                                       "try sound file " + row.path});
    for (int attempt = 0; attempt < 4; ++attempt) {
      expected.push_back("playback: try open " + row.path);
      expected.push_back((found ? "playback: parse wav file fail " : "playback: cannot open ") +
                         row.path);
    }
    EXPECT_EQ(captured_log([&] { EXPECT_EQ(DoSpeaker(row.name), -1); }), expected);
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
