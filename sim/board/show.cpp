// `custodo-board show DIR [WHAT]`: the board's state, or one of its records.
#include <cstdio>
#include <fstream>

#include "platform/board_paths.h"
#include "sim/board/commands.h"
#include "sim/board/control.h"
#include "sim/common/sim_files.h"
#include "sim/common/wallclock.h"
#include "sim/mculink/mcu_state.h"

namespace {

struct Record {
  const char* topic;
  const char* file;
};
const Record kRecords[] = {
    {"console", sim::kConsoleLog}, {"init", sim::kInitLog},    {"watchdog", sim::kWatchdogLog},
    {"mcu", sim::kMcuCalls},       {"tools", sim::kToolsLog},  {"daemons", sim::kDaemonsLog},
    {"stat", "sim/tqstat.log"},    {"clock", sim::kClockLog},  {"sound", sim::kSoundLog},
};

int line_count(const std::string& path) {
  std::ifstream in(path);
  int lines = 0;
  for (std::string line; std::getline(in, line);) ++lines;
  return lines;
}

void summary(const std::string& dir) {
  std::string answer;
  if (board_running(board_root()) && control_request("status", &answer))
    std::printf("%s\n", answer.substr(3).c_str());
  else
    std::printf("no board running at %s\n", dir.c_str());
  for (const Record& r : kRecords)
    std::printf("%-9s %-18s %d lines\n", r.topic, r.file, line_count(sim::file(r.file)));
}

}  // namespace

int cmd_show(const Args& args) {
  if (args.empty() || args.size() > 2)
    return fail(
        "usage: custodo-board show DIR [console|init|watchdog|mcu|tools|daemons|stat|clock|sound]");
  std::string root;
  if (need_root(args[0], &root) != 0) return 1;
  if (args.size() == 1) {
    summary(args[0]);
    return 0;
  }
  const Record* record = nullptr;
  for (const Record& r : kRecords)
    if (args[1] == r.topic) record = &r;
  if (record == nullptr) return fail("nothing to show under '" + args[1] + "'");
  std::fputs(sim::read_file(sim::file(record->file)).c_str(), stdout);
  // After a record, what it acts on as it stands now.
  if (args[1] == "mcu") std::printf("MCU state now: %s\n", sim::mcu_state_summary().c_str());
  if (args[1] == "clock") {
    sim::WallClock clock = sim::load_wallclock();
    long long now = static_cast<long long>(sim::wallclock_now_us(clock) / 1000000);
    std::printf("board wall clock now %lld, minuteswest %d\n", now, clock.minuteswest);
  }
  return 0;
}
