#include <gtest/gtest.h>

#include "platform/board_paths.h"
#include "process/notify_socket.h"
#include "process/policy_file.h"
#include "tests/unit/helpers.h"

namespace {

std::deque<ProcessInfo> list_of(std::initializer_list<std::pair<const char*, int>> daemons) {
  std::deque<ProcessInfo> list;
  for (const auto& [name, key] : daemons) list.push_back(ProcessInfo{-1, name, "", key, 3, 0});
  return list;
}

TEST(PolicyFile, KeysValuesAndWhatIsIgnored) {
  const std::string path = board_root() + "/ProcessPolicy.conf";
  write_text(path.c_str(),
             "[A]\nnotify = yes   # a comment\nheartbeat=30 ; another\nrestart-backoff = 60\nmemory-max = 64M\n"
             "[K]\nrestart-backoff = 5\nheartbeat = 2\n[B]\nnotify = maybe\nheartbeat = 0\nheartbeat = 86401\n"
             "restart-backoff = 3s\nmemory-max = 64m\nmemory = 1\n[Nobody]\nnotify = yes\nheartbeat = 1\n"
             "not a line\n[C]\nmemory-max = 1G\nnotify = no\n");
  std::vector<DaemonPolicy> found;
  auto logged = captured_log([&] { found = read_policy_file(path, list_of({{"C", 0}, {"K", 1}, {"A", 0}, {"B", 0}})); });
  const std::string p = "ProcessPolicy.conf: ";
  EXPECT_EQ(logged, (std::vector<std::string>{
                        p + "[K] restart-backoff ignored: losing a key daemon restarts all",
                        p + "[B] notify = maybe is not yes or no, ignored",
                        p + "[B] heartbeat = 0 is not whole seconds from 1 to 86400, ignored",
                        p + "[B] heartbeat = 86401 is not whole seconds from 1 to 86400, ignored",
                        p + "[B] restart-backoff = 3s is not whole seconds from 1 to 86400, ignored",
                        p + "[B] memory-max = 64m is not a size such as 64M, ignored",
                        p + "[B] unknown key memory, ignored",
                        p + "[Nobody] is no daemon of the list, ignored",
                        p + "line 19 is no section, key or comment: ignored, as is any such line after it",
                        p + "C: memory-max 1073741824 bytes",
                        p + "K: heartbeat 2 s",
                        p + "A: notify, heartbeat 30 s, restart-backoff 60 s, memory-max 67108864 bytes",
                    }));
  ASSERT_EQ(found.size(), 3u);
  EXPECT_TRUE(found[2].notify && found[2].heartbeat_s == 30 && found[2].backoff_limit_s == 60);
  EXPECT_EQ(found[1].backoff_limit_s, 0);
  // No file: nothing at all.
  write_text(path.c_str(), nullptr);
  EXPECT_TRUE(captured_log([&] { found = read_policy_file(path, list_of({{"A", 0}})); }).empty());
  EXPECT_TRUE(found.empty());
}

TEST(PolicyFile, Sizes) {
  const std::pair<const char*, uint64_t> rows[] = {
      {"4096", 4096}, {"64K", 65536}, {"64M", 64ull << 20}, {"2G", 2ull << 30}, {"0", 0}, {"", 0},
      {"M", 0}, {"-1M", 0}, {"1.5G", 0}, {"8T", 0}, {"17179869184G", 0}, {"99999999999999999999", 0}};
  for (const auto& [text, size] : rows) EXPECT_EQ(parse_size(text), size) << text;
}

TEST(NotifySocket, ParsesAssignmentsOneALine) {
  Notification note;
  const std::string both = "MAINPID=7\nSTATUS=busy cleaning\nWATCHDOG=1\nREADY=1";
  ASSERT_TRUE(parse_notification(both.data(), both.size(), &note));
  EXPECT_TRUE(note.ready && note.watchdog && !note.trigger && note.has_status);
  EXPECT_STREQ(note.status, "busy cleaning");
  const std::string long_status = "STATUS=" + std::string(500, 'x') + "\nWATCHDOG=trigger\n";
  ASSERT_TRUE(parse_notification(long_status.data(), long_status.size(), &note));
  EXPECT_TRUE(note.trigger && !note.watchdog && std::string(note.status) == std::string(kStatusBytes - 1, 'x'));
  for (const std::string& garbage : std::vector<std::string>{"", "READY=2", "WATCHDOG=0\nREADY", "ready=1", std::string("READY=1\0", 8)})
    EXPECT_FALSE(parse_notification(garbage.data(), garbage.size(), &note)) << garbage;
}

}  // namespace
