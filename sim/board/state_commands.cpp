// Commands that set the board's state: the MCU, the counter, the wall clock, the init's
// restart hold, the stub daemons' behaviour, stuck reads, the canned ntpdate answers and the
// speaker and mixer.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "sim/board/boot.h"
#include "sim/board/commands.h"
#include "sim/board/control.h"
#include "sim/common/sim_files.h"
#include "sim/common/wallclock.h"
#include "sim/mculink/mcu_state.h"

namespace {

const char* const kStubModes[] = {"hup-exit", "hup-ignore", "stuck", "zombie", "listen"};

// The speaker and mixer settings: each is a flag file, present for the setting's second value.
struct SoundSetting {
  const char* text;
  const char* flag;
  bool present;
};
const SoundSetting kSoundSettings[] = {{"mixer=on", sim::kNoMixer, false},
                                       {"mixer=off", sim::kNoMixer, true},
                                       {"pcm=ok", sim::kPcmFail, false},
                                       {"pcm=fail", sim::kPcmFail, true}};

int ask_board(const std::string& dir, const std::string& request) {
  std::string root, answer;
  if (need_running_board(dir, &root) != 0) return 1;
  if (!control_request(request, &answer)) return fail("the board at " + dir + " does not answer");
  if (answer.rfind("ok", 0) != 0) return fail(answer);
  std::printf("%s\n", answer.substr(answer.size() > 3 ? 3 : answer.size()).c_str());
  return 0;
}

bool parse_long(const std::string& text, long long min, long long max, long long* value) {
  char* end = nullptr;
  errno = 0;
  *value = std::strtoll(text.c_str(), &end, 10);
  return !text.empty() && *end == '\0' && errno != ERANGE && *value >= min && *value <= max;
}

// The board's clock runs from the epoch to the end of year 9999, its zone at most 15 hours
// from Greenwich, as the kernel's.
constexpr long long kLastSecond = 253402300799;
constexpr long long kWidestZone = 15 * 60;

// The queue's next name: one above the highest, so that names sort in the order pushed.
std::string next_queue_name(const std::string& queue) {
  long highest = 0;
  if (DIR* dir = opendir(queue.c_str())) {
    while (dirent* entry = readdir(dir)) highest = std::max(highest, std::atol(entry->d_name));
    closedir(dir);
  }
  char name[24];
  std::snprintf(name, sizeof name, "%06ld", highest + 1);
  return name;
}

// What the stub daemon NAME tells the supervisor from its next start: READY=1 after, or
// WATCHDOG=1 every, so many seconds of board time; the other setting stays.
int set_notify(const std::string& dir, const std::string& name, const std::string& key, const std::string& value) {
  char* end = nullptr;
  double seconds = std::strtod(value.c_str(), &end);
  if (value.empty() || *end != '\0' || !(seconds >= 0 && seconds <= 86400) || (key == "watchdog" && seconds == 0))
    return fail("bad seconds: " + value + " (0 to 86400, more than 0 for watchdog)");
  std::string root;
  if (need_root(dir, &root) != 0) return 1;
  std::string path = sim::file(sim::kStubNotify) + "/" + name;
  std::string kept, line;
  std::istringstream old(sim::read_file(path));
  while (std::getline(old, line))
    if (line.rfind(key + " ", 0) != 0) kept += line + "\n";
  if (!write_file(path, kept + key + " " + value + "\n")) return fail("cannot write " + path);
  return 0;
}

// A request to the running stub daemon NAME, taken on SIGUSR2.
int ask_daemon(const std::string& dir, const std::string& name, const std::string& word, const Args& args) {
  unsigned long long mib = 0;
  if (word == "grow" && (!parse_number(args[3], 4096, &mib) || mib == 0)) return fail("bad MiB: " + args[3]);
  std::string root;
  if (need_running_board(dir, &root) != 0) return 1;
  std::string path = sim::file(sim::kStubRequests) + "/" + name;
  if (!write_file(path, word + (args.size() == 4 ? " " + args[3] : "") + "\n")) return fail("cannot write " + path);
  return cmd_kill({dir, name, "USR2"});
}

}  // namespace

int cmd_mcu(const Args& args) {
  if (args.size() < 2) return fail("usage: custodo-board mcu DIR key=value...");
  std::string root, error;
  if (need_root(args[0], &root) != 0) return 1;
  if (sim::mcu_state_set(Args(args.begin() + 1, args.end()), &error) != 0) return fail(error);
  return 0;
}

int cmd_counter(const Args& args) {
  unsigned long long ms = 0;
  bool valid = args.size() >= 2 && args.size() <= 3;
  if (valid && args[1] == "freeze") {
    valid = args.size() == 2 || parse_number(args[2], UINT64_MAX, &ms);
  } else if (valid && args[1] == "set") {
    valid = args.size() == 3 && parse_number(args[2], UINT64_MAX, &ms);
  } else {
    valid = valid && args[1] == "run" && args.size() == 2;
  }
  if (!valid) return fail("usage: custodo-board counter DIR freeze [MS] | set MS | run");
  // The counter's word holds no more (sim_files.h): a larger count would read as another.
  if (args.size() == 3 && ms > sim::kCounterMax)
    return fail("counter value " + args[2] + " out of range: 0 to " +
                std::to_string(sim::kCounterMax));
  std::string request = "counter " + args[1] + (args.size() == 3 ? " " + args[2] : "");
  return ask_board(args[0], request);
}

int cmd_unstick(const Args& args) {
  if (args.size() != 1) return fail("usage: custodo-board unstick DIR");
  return ask_board(args[0], "unstick");
}

int cmd_wallclock(const Args& args) {
  long long seconds = 0, minuteswest = 0;
  if (args.size() < 2 || args.size() > 3 || !parse_long(args[1], 0, kLastSecond, &seconds) ||
      (args.size() == 3 && !parse_long(args[2], -kWidestZone, kWidestZone, &minuteswest)))
    return fail("usage: custodo-board wallclock DIR SECONDS [MINUTESWEST] (seconds from 0 to " +
                std::to_string(kLastSecond) + ", minutes west from -900 to 900)");
  std::string root;
  // Every boot starts the board's clock afresh, so it is set on a running board only.
  if (need_running_board(args[0], &root) != 0) return 1;
  int zone = args.size() == 3 ? static_cast<int>(minuteswest) : sim::load_wallclock().minuteswest;
  sim::set_wallclock(seconds * 1000000, zone, "custodo-board wallclock");
  return 0;
}

int cmd_hold(const Args& args) {
  std::string root;
  if (args.size() != 1) return fail("usage: custodo-board hold DIR");
  if (need_root(args[0], &root) != 0) return 1;
  if (!write_file(sim::file(kHoldFile), "")) return fail("cannot write " + sim::file(kHoldFile));
  sim::record(sim::kInitLog, "hold");
  return 0;
}

int cmd_release(const Args& args) {
  std::string root;
  if (args.size() != 1) return fail("usage: custodo-board release DIR");
  if (need_root(args[0], &root) != 0) return 1;
  unlink(sim::file(kHoldFile).c_str());
  sim::record(sim::kInitLog, "release");
  return 0;
}

int cmd_daemon(const Args& args) {
  std::string word = args.size() >= 3 ? args[2] : "";
  bool with_value = word == "listen" || word == "ready" || word == "watchdog" || word == "grow" || word == "say";
  if (args.size() != (with_value ? 4u : 3u))
    return fail("usage: custodo-board daemon DIR NAME MODE | listen MODULE | ready S | watchdog S | hang | "
                "grow MIB | say TEXT");
  const std::string& name = args[1];
  if (name.empty() || name.find('/') != std::string::npos || name[0] == '.')
    return fail("bad daemon name: " + name);
  if (word == "hang" || word == "grow" || word == "say") return ask_daemon(args[0], name, word, args);
  if (word == "ready" || word == "watchdog") return set_notify(args[0], name, word, args[3]);
  bool known = false;
  for (const char* m : kStubModes) known = known || word == m;
  if (!known)
    return fail("unknown mode " + word + " (hup-exit, hup-ignore, stuck, zombie, listen)");
  unsigned long long module = 0;
  if (word == "listen" && !parse_number(args[3], 255, &module)) return fail("bad module: " + args[3]);
  if (word == "listen") word += " " + std::to_string(module);
  std::string root;
  if (need_root(args[0], &root) != 0) return 1;
  std::string path = sim::file(sim::kStubModes) + "/" + name;
  if (!write_file(path, word + "\n")) return fail("cannot write " + path);
  return 0;
}

int cmd_ntpdate(const Args& args) {
  bool push = args.size() == 3 && args[1] == "push";
  if (!push && !(args.size() == 2 && (args[1] == "hold" || args[1] == "release")))
    return fail("usage: custodo-board ntpdate DIR push TEXT | hold | release");
  std::string root;
  if (need_root(args[0], &root) != 0) return 1;
  std::string dir = sim::file(sim::kNtpdateDir);
  if (push) {
    std::string queue = dir + "/queue";
    std::string text = args[2];
    if (text.empty() || text.back() != '\n') text += '\n';  // as the real tool prints it
    std::string path = queue + "/" + next_queue_name(queue);
    if (!write_file(path, text)) return fail("cannot write " + path);
  } else if (args[1] == "hold") {
    if (!write_file(dir + "/hold", "")) return fail("cannot write " + dir + "/hold");
  } else {
    unlink((dir + "/hold").c_str());
  }
  return 0;
}

int cmd_sound(const Args& args) {
  if (args.size() < 2) return fail("usage: custodo-board sound DIR [mixer=on|off] [pcm=ok|fail]");
  // Every setting is checked before any is made.
  std::vector<const SoundSetting*> chosen;
  for (size_t i = 1; i < args.size(); ++i) {
    auto found = std::find_if(std::begin(kSoundSettings), std::end(kSoundSettings),
                              [&](const SoundSetting& s) { return args[i] == s.text; });
    if (found == std::end(kSoundSettings))
      return fail("unknown setting " + args[i] + " (mixer=on|off, pcm=ok|fail)");
    chosen.push_back(found);
  }
  std::string root;
  if (need_root(args[0], &root) != 0) return 1;
  for (const SoundSetting* setting : chosen) {
    std::string flag = sim::file(setting->flag);
    if (!setting->present)
      unlink(flag.c_str());
    else if (!write_file(flag, ""))
      return fail("cannot write " + flag);
  }
  return 0;
}
