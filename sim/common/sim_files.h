// The simulated board's own files, below the board root, and the helpers every simulator
// program shares: the board's counter for time stamps, the time scale, and records.
#pragma once
#include <cstdint>
#include <string>

namespace sim {

// Records and state of the simulator, relative to the board root.
constexpr const char* kConsoleLog = "sim/console.log";    // the supervisor's output
constexpr const char* kInitLog = "sim/init.log";          // init: starts, exits, reboots
constexpr const char* kWatchdogLog = "sim/watchdog.log";  // every watchdog request
constexpr const char* kToolsLog = "sim/tools.log";        // calls of the stub tools
constexpr const char* kDaemonsLog = "sim/daemons.log";    // stub daemons: start, signals
constexpr const char* kClockLog = "sim/clock.log";        // wall-clock sets
constexpr const char* kWallClock = "sim/wallclock";       // the board's wall clock
constexpr const char* kMcuState = "sim/mcu/state";        // MCU state set by tests
constexpr const char* kMcuCalls = "sim/mcu/calls.log";    // every MCU library call
constexpr const char* kStubModes = "sim/stubs";           // per-name stub daemon behaviour
constexpr const char* kStubNotify = "sim/stubs-notify";   // per name: what a stub tells the supervisor
constexpr const char* kStubRequests = "sim/stubs-requests";  // per name: a request to a running stub
constexpr const char* kNtpdateDir = "sim/ntpdate";        // canned ntpdate answers
constexpr const char* kPcmFile = "sim/pcm.raw";           // samples played through ALSA
constexpr const char* kSoundLog = "sim/sound.log";        // speaker opens and closes, volume sets
constexpr const char* kPcmFail = "sim/sound/pcm-fail";    // present: the speaker cannot open
constexpr const char* kNoMixer = "sim/sound/no-mixer";    // present: the mixer has no element
constexpr const char* kVolume = "sim/sound/volume";       // the mixer element's value
constexpr const char* kRequest = "sim/request";           // power-off or reboot asked of init
constexpr const char* kControlSocket = "sim/control.sock";
constexpr const char* kInitPid = "sim/init.pid";          // host pid of the board's init
constexpr const char* kLock = "sim/board.lock";
constexpr const char* kFuseDir = "sim/fuse";              // watchdog device, stuck file

// board_root() + "/" + relative.
std::string file(const char* relative);

// A whole file's bytes; "" when it cannot be read. The descriptor is close-on-exec: the
// supervisor links these helpers, and it forks.
std::string read_file(const std::string& path);

// CUSTODO_SIM_TIMESCALE: 1 when unset. Any other value than a whole number from 1 to
// kMaxTimescale ends the program with a message saying so.
constexpr unsigned kMaxTimescale = 10000;
unsigned timescale();

int64_t host_monotonic_us();
int64_t host_realtime_us();

// Board time as the simulator's timers see it: the host's monotonic clock, running
// CUSTODO_SIM_TIMESCALE times faster.
uint64_t board_clock_ms();

// The counter device holds one word from which every reader computes the count, so that no
// one has to store it every millisecond: a frozen count as it stands, or, with
// kCounterRunning set, the board-clock moment at which the count was 0 (plus kCounterBias,
// so that a count set ahead of the clock stays positive). An empty device reads 0.
constexpr uint64_t kCounterRunning = 1ull << 63;
constexpr uint64_t kCounterBias = 1ull << 61;
// The largest count a word holds either way.
constexpr uint64_t kCounterMax = kCounterBias - 1;
uint64_t counter_from_word(uint64_t word);
uint64_t counter_word(uint64_t count, bool running);

// The board's millisecond counter as the supervisor sees it; 0 when it cannot be read.
uint64_t counter_ms();

// Appends "<counter> <line>\n" to a record file in one write.
void record(const char* relative, const std::string& line);

}  // namespace sim
