// The stub system tools of the simulated board, one program under several names (symlinks):
// shutdown, reboot, serialcheck, cpu.sh and ntpdate. Every call is recorded in sim/tools.log.
// shutdown and reboot ask the board's init for a power-off or reboot and return at once, as
// the real commands do; ntpdate answers with the next canned output queued by the board.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/state_file.h"
#include "platform/board_paths.h"
#include "sim/common/sim_files.h"

namespace {

// The board's init (PID 1 of the board) reads the request on SIGUSR1. Outside a board PID 1 is
// the host's init, which must never get the signal.
int ask_init(const char* request) {
  std::string why = board_check();
  if (!why.empty()) {
    std::fprintf(stderr, "%s\n", why.c_str());
    return 1;
  }
  std::string path = sim::file(sim::kRequest);
  if (write_state_file(path.c_str(), request, std::strlen(request)) < 0 || kill(1, SIGUSR1) != 0) {
    std::perror("request to the board's init");
    return 1;
  }
  return 0;
}

int shutdown_tool(const std::vector<std::string>& args) {
  if (std::find(args.begin(), args.end(), "-r") != args.end()) return ask_init("reboot");
  if (std::find(args.begin(), args.end(), "-h") != args.end() ||
      std::find(args.begin(), args.end(), "-P") != args.end())
    return ask_init("poweroff");
  return 0;
}

bool exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

std::vector<std::string> queued(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* entry = readdir(d))
      // A name with a dot is an answer still being written.
      if (std::strchr(entry->d_name, '.') == nullptr) names.push_back(entry->d_name);
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Waits while the board holds calls, then prints the oldest queued answer and removes it.
int ntpdate_tool() {
  std::string dir = sim::file(sim::kNtpdateDir);
  const timespec poll{0, 20 * 1000 * 1000};
  while (exists(dir + "/hold")) nanosleep(&poll, nullptr);
  for (const std::string& entry : queued(dir + "/queue")) {
    std::string path = dir + "/queue/" + entry;
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    // Another call may have taken it meanwhile: the one whose unlink succeeds owns it.
    if (!in || unlink(path.c_str()) != 0) continue;
    std::string answer = text.str();
    std::fwrite(answer.data(), 1, answer.size(), stdout);
    return 0;
  }
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const char* slash = std::strrchr(argv[0], '/');
  std::string tool = slash ? slash + 1 : argv[0];
  std::vector<std::string> args(argv + 1, argv + argc);
  std::string line = tool;
  for (const std::string& arg : args) line += " " + arg;
  sim::record(sim::kToolsLog, line);

  if (tool == "shutdown") return shutdown_tool(args);
  if (tool == "reboot") return ask_init("reboot");
  if (tool == "ntpdate") return ntpdate_tool();
  if (tool == "serialcheck" || tool == "cpu.sh") return 0;
  std::fprintf(stderr, "custodo-stubtool: no stub tool is called %s\n", tool.c_str());
  return 1;
}
