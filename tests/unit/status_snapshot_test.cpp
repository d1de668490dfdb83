#include "status/snapshot.h"

#include <gtest/gtest.h>
#include <jansson.h>
#include <sys/stat.h>

#include <functional>
#include <string>

#include "platform/board_paths.h"

namespace {

// Each daemon's "pid starts restarts state", and whether it ever vanished.
std::string daemons() {
  json_t* root = json_load_file(board_path(BoardPath::StatusSnapshot), 0, nullptr);
  std::string shown;
  size_t index;
  json_t* d;
  json_array_foreach(json_object_get(root, "daemons"), index, d) {
    for (const char* key : {"pid", "starts", "restarts"})
      shown += std::to_string(json_integer_value(json_object_get(d, key))) + " ";
    shown += json_string_value(json_object_get(d, "state"));
    shown += json_is_null(json_object_get(d, "last_vanished")) ? "; " : " vanished; ";
  }
  json_decref(root);
  return shown;
}

}  // namespace

TEST(StatusSnapshot, DaemonStatesFollowStartsLookUpsAndStops) {
  // The second name is no UTF-8: still a snapshot.
  std::deque<ProcessInfo> list = {
      {40, "CoreCtl", "", 1, 0, 0}, {-1, "chimer\xff", "", 0, 0, 0}, {-1, "quom_client", "", 0, 0, 0}};
  status_start("v0.00.00");
  status_list("ProcessList.conf", list);
  const std::pair<std::function<void()>, const char*> steps[] = {
      {[] { status_daemon_started("CoreCtl", false); status_daemon_started("chimer\xff", false); },
       "0 1 0 running; 0 1 0 running; 0 0 0 stopped; "},
      {[&] { status_daemon("quom_client", DaemonState::HeldBack); status_pids(list); },
       "40 1 0 running; 0 1 0 vanished vanished; 0 0 0 held back; "},
      {[&] { status_daemon_started("chimer\xff", true); list[1].pid = 41; status_pids(list); },
       "40 1 0 running; 41 2 1 running vanished; 0 0 0 held back; "},
      {[] { status_daemon("CoreCtl", DaemonState::Stopping); },
       "40 1 0 stopping; 41 2 1 running vanished; 0 0 0 held back; "},
      {[] { status_all_stopped(); }, "0 1 0 stopped; 0 2 1 stopped vanished; 0 0 0 stopped; "},
  };
  for (const auto& [step, expected] : steps) {
    step();
    EXPECT_EQ(daemons(), expected);
  }
  // A report that changes nothing writes nothing.
  struct stat before {}, after {};
  stat(board_path(BoardPath::StatusSnapshot), &before);
  status_daemon("CoreCtl", DaemonState::Stopped);
  stat(board_path(BoardPath::StatusSnapshot), &after);
  EXPECT_EQ(after.st_ino, before.st_ino);
}
