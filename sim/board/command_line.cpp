#include "sim/board/command_line.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/state_file.h"
#include "sim/common/sim_files.h"

int fail(const std::string& message) {
  std::fprintf(stderr, "custodo-board: %s\n", message.c_str());
  return 1;
}

std::string use_root(const std::string& dir) {
  std::string root = dir;
  if (root.empty() || root[0] != '/') {
    char cwd[PATH_MAX];
    std::string base = getcwd(cwd, sizeof cwd) ? cwd : ".";
    root = base + "/" + root;
  }
  while (root.size() > 1 && root.back() == '/') root.pop_back();
  setenv("CUSTODO_BOARD_ROOT", root.c_str(), 1);
  return root;
}

bool is_board_root(const std::string& root) {
  struct stat lock{};
  return stat((root + "/" + sim::kLock).c_str(), &lock) == 0 && S_ISREG(lock.st_mode);
}

bool board_running(const std::string& root) {
  int fd = open((root + "/" + sim::kLock).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool held = flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(fd);
  return held;
}

int need_root(const std::string& dir, std::string* root) {
  *root = use_root(dir);
  if (!is_board_root(*root))
    return fail(dir + " is not a board root (create it with: custodo-board init " + dir + ")");
  return 0;
}

int need_running_board(const std::string& dir, std::string* root) {
  *root = use_root(dir);
  if (!board_running(*root)) return fail("no board running at " + dir);
  return 0;
}

bool parse_options(const Args& args, const option* options, const OptionHandler& on_option,
                   Args* words, Args* rest) {
  auto end = rest ? std::find(args.begin(), args.end(), "--") : args.end();
  if (rest) rest->assign(end == args.end() ? end : end + 1, args.end());
  Args copies(1, "custodo-board");
  copies.insert(copies.end(), args.begin(), end);
  std::vector<char*> argv;
  for (std::string& word : copies) argv.push_back(&word[0]);
  argv.push_back(nullptr);
  optind = 0;  // a fresh scan: glibc keeps state between calls otherwise
  for (int found; (found = getopt_long(static_cast<int>(copies.size()), argv.data(), "", options,
                                       nullptr)) != -1;)
    if (found == '?' || !on_option(found, optarg ? optarg : "")) return false;
  words->assign(argv.begin() + optind, argv.end() - 1);
  return true;
}

bool parse_number(const std::string& text, unsigned long long max, unsigned long long* value) {
  if (text.empty() || text[0] == '-' || text[0] == '+' || text[0] == ' ') return false;
  errno = 0;
  char* end = nullptr;
  int base = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') ? 16 : 10;
  unsigned long long v = std::strtoull(text.c_str(), &end, base);
  if (errno != 0 || *end != '\0' || v > max) return false;
  *value = v;
  return true;
}

std::string self_exe() {
  char path[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return "custodo-board";
  path[n] = '\0';
  return path;
}

std::string self_dir() {
  std::string exe = self_exe();
  size_t slash = exe.rfind('/');
  return slash == std::string::npos ? "." : exe.substr(0, slash);
}

bool write_file(const std::string& path, const std::string& content, unsigned mode) {
  return write_state_file(path.c_str(), content.data(), content.size(), mode) >= 0;
}

bool remove_contents(const std::string& dir) {
  std::error_code error;
  for (std::filesystem::directory_iterator it(dir, error), end; !error && it != end;
       it.increment(error))
    std::filesystem::remove_all(it->path(), error);
  errno = error.value();
  return !error;
}
