// `custodo-board init DIR`: a board root with the board's files at their usual paths, a
// sample configuration, the stub daemons and tools, and the simulator's own directory sim/.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/board_paths.h"
#include "sim/board/commands.h"
#include "sim/board/command_line.h"
#include "sim/board/root_files.h"
#include "sim/board/sample_config.h"
#include "sim/common/sim_files.h"
#include "sim/common/uboot_env.h"
#include "sim/mculink/mcu_state.h"

namespace {

constexpr size_t kUbootEnvSize = 0x4000;
const char* const kDaemons[] = {"tqlogd",  "chimer",   "CoreCtl",     "AppBridge",
                                "netmgrd", "Upgrader", "quom_client", "quom_client_helper_nomqtt.sh"};
const char* const kTools[] = {"shutdown", "reboot", "serialcheck", "ntpdate"};

bool make_dirs(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    std::string prefix = path.substr(0, slash);
    if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) return true;
  }
}

class Layout {
 public:
  explicit Layout(std::string root) : root_(std::move(root)) {}

  void dir(const std::string& relative) {
    if (ok_ && !make_dirs(root_ + "/" + relative)) failed(relative);
  }
  void file(const std::string& relative, const std::string& content, unsigned mode = 0644) {
    if (ok_ && !write_file(root_ + "/" + relative, content, mode)) failed(relative);
  }
  void link(const std::string& relative, const std::string& target) {
    if (ok_ && symlink(target.c_str(), (root_ + "/" + relative).c_str()) != 0) failed(relative);
  }
  void copy(const std::string& from, const std::string& relative) {
    if (!ok_) return;
    std::string content = sim::read_file(from);
    if (content.empty()) {
      ok_ = false;
      error_ = "cannot read " + from + " (build it beside custodo-board)";
      return;
    }
    file(relative, content, 0755);
  }
  void check(bool done, const std::string& what) {
    if (ok_ && !done) {
      ok_ = false;
      error_ = what;
    }
  }
  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }

 private:
  void failed(const std::string& what) {
    ok_ = false;
    error_ = "cannot create " + what + ": " + std::strerror(errno);
  }
  std::string root_;
  bool ok_ = true;
  std::string error_;
};

bool is_empty_dir(const std::string& path) {
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) return false;
  int entries = 0;
  while (dirent* entry = readdir(dir))
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) ++entries;
  closedir(dir);
  return entries == 0;
}

std::string parent_of(const std::string& path) { return path.substr(0, path.rfind('/')); }

void populate(Layout& at, const std::string& root) {
  // The directories the board's files lie in, and those a new board holds empty.
  for (BoardPath file : {BoardPath::FailureCount, BoardPath::McuFirmwareMatch, BoardPath::CpuScript,
                         BoardPath::BootReason, BoardPath::McuReady, BoardPath::QuomNetlinkConf,
                         BoardPath::FwEnvConfig, BoardPath::NotifySocket})
    at.dir(parent_of(board_relative_path(file)));
  for (BoardPath dir : {BoardPath::SharedMemoryDir, BoardPath::UpdatePackageDir,
                        BoardPath::UserSounds, BoardPath::IpcSocketDir})
    at.dir(board_relative_path(dir));
  at.dir(parent_of(root_files::factory_prompt_path()));
  for (const char* d : {"bin", "lib", "sim/mcu", "sim/sound", sim::kStubModes, sim::kStubNotify,
                        sim::kStubRequests, "sim/ntpdate/queue", "sim/fuse"})
    at.dir(d);
  // First: the lock file marks a board root, so that a failed init can be run again.
  at.file(sim::kLock, "");
  for (const auto& [path, text] : sample_configuration()) at.file(path, text);
  at.file(board_relative_path(BoardPath::Jiffies), std::string(8, '\0'));
  at.link(board_relative_path(BoardPath::Watchdog), "../sim/fuse/watchdog");
  at.file(board_relative_path(BoardPath::BootReason), "0");
  at.file(board_relative_path(BoardPath::KernelCmdline), root_files::kernel_cmdline());
  at.file(board_relative_path(BoardPath::FwEnvConfig), root_files::fw_env_config(root));
  at.file("etc/asound.conf", root_files::asound_conf(root));
  at.file(root_files::factory_prompt_path(), root_files::factory_prompt());

  std::string dir = self_dir();
  at.copy(dir + "/custodo-stubd", "bin/stubd");
  at.copy(dir + "/custodo-stubtool", "bin/stubtool");
  at.copy(dir + "/custodo-memlog", "bin/custodo-memlog");
  at.copy(dir + "/custodo-status", "bin/custodo-status");
  at.copy(dir + "/custodo-sim-sound.so", root_files::kSoundPlugin);
  for (const char* name : kDaemons) at.link(std::string("bin/") + name, "stubd");
  for (const char* name : kTools) at.link(std::string("bin/") + name, "stubtool");
  at.link(board_relative_path(BoardPath::CpuScript), "../../../bin/stubtool");

  at.file("sim/uboot-env.1", std::string(kUbootEnvSize, '\0'));
  at.file("sim/uboot-env.2", std::string(kUbootEnvSize, '\0'));
  sim::EnvVars flags = {{"partition_flag_1", "1"}, {"partition_flag_2", "1"},
                        {"update_progress_flag", "0"}};
  at.check(sim::write_uboot_env(root + "/" + board_relative_path(BoardPath::FwEnvConfig), flags),
           "cannot write the U-Boot environment below " + root + "/sim");
  std::string error;
  at.check(sim::mcu_state_reset(&error) == 0, "cannot write the MCU state: " + error);
}

// Whether the longest socket names below the root (a module number of three digits, a socket
// being bound in its private directory, the control socket) fit a Unix socket address.
bool root_fits_sockets(const std::string& root) {
  size_t ipc = std::strlen(board_relative_path(BoardPath::IpcSocketDir)) + 1;
  size_t longest = root.size() + 1 + std::max({ipc + std::strlen("/255"), ipc + std::strlen("/.XXXXXX/s"),
                                               std::strlen(sim::kControlSocket)});
  return longest < sizeof(sockaddr_un::sun_path);
}

}  // namespace

int cmd_init(const Args& args) {
  if (args.size() != 1) return fail("usage: custodo-board init DIR");
  const std::string& dir = args[0];
  std::string root = use_root(dir);
  if (!root_fits_sockets(root))
    return fail("board root path too long for socket names; use a short path such as /tmp/cb1");
  struct stat st{};
  if (stat(root.c_str(), &st) == 0) {
    if (!S_ISDIR(st.st_mode)) return fail(dir + " exists and is not a directory");
    if (is_board_root(root)) {
      if (board_running(root)) return fail("a board is running at " + dir + "; stop it first");
      if (!remove_contents(root))
        return fail("cannot empty " + dir + ": " + std::strerror(errno));
    } else if (!is_empty_dir(root)) {
      return fail(dir + " is neither empty nor a board root; refusing to touch it");
    }
  }
  if (!make_dirs(root)) return fail("cannot create " + dir + ": " + std::strerror(errno));
  Layout at(root);
  populate(at, root);
  if (!at.ok()) return fail(at.error());
  std::printf("board root ready at %s\n", root.c_str());
  return 0;
}
