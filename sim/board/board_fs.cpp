#define FUSE_USE_VERSION 35
#include "sim/board/board_fs.h"

#include <fuse_lowlevel.h>
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iterator>
#include <mutex>
#include <thread>
#include <vector>

#include "sim/board/watchdog_device.h"

namespace {

enum Inode : fuse_ino_t { kRoot = FUSE_ROOT_ID, kWatchdog, kStuck };

struct Entry {
  const char* name;
  fuse_ino_t ino;
};
const Entry kEntries[] = {{".", kRoot}, {"..", kRoot}, {"watchdog", kWatchdog}, {"stuck", kStuck}};

fuse_session* session = nullptr;
std::thread server;
std::atomic<bool> serving{false};

std::mutex stuck_mutex;
std::vector<fuse_req_t> stuck_reads;
bool stuck_released = false;

struct stat attributes(fuse_ino_t ino) {
  struct stat st{};
  st.st_ino = ino;
  if (ino == kRoot) {
    st.st_mode = S_IFDIR | 0755;
    st.st_nlink = 2;
  } else {
    st.st_mode = S_IFREG | (ino == kWatchdog ? 0600 : 0444);
    st.st_nlink = 1;
  }
  return st;
}

void fs_lookup(fuse_req_t req, fuse_ino_t parent, const char* name) {
  for (const Entry& e : kEntries) {
    if (parent == kRoot && e.ino != kRoot && std::strcmp(name, e.name) == 0) {
      fuse_entry_param entry{};
      entry.ino = e.ino;
      entry.attr = attributes(e.ino);
      entry.attr_timeout = entry.entry_timeout = 60.0;
      fuse_reply_entry(req, &entry);
      return;
    }
  }
  fuse_reply_err(req, ENOENT);
}

void fs_getattr(fuse_req_t req, fuse_ino_t ino, fuse_file_info*) {
  if (ino != kRoot && ino != kWatchdog && ino != kStuck) {
    fuse_reply_err(req, ENOENT);
    return;
  }
  struct stat st = attributes(ino);
  fuse_reply_attr(req, &st, 60.0);
}

void fs_readdir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t offset, fuse_file_info*) {
  if (ino != kRoot) {
    fuse_reply_err(req, ENOTDIR);
    return;
  }
  char buffer[512];
  size_t used = 0;
  for (size_t i = static_cast<size_t>(offset); i < std::size(kEntries); ++i) {
    struct stat st = attributes(kEntries[i].ino);
    size_t room = std::min(size, sizeof buffer) - used;
    size_t need = fuse_add_direntry(req, buffer + used, room, kEntries[i].name, &st,
                                    static_cast<off_t>(i + 1));
    if (need > room) break;
    used += need;
  }
  fuse_reply_buf(req, buffer, used);
}

void fs_open(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) {
  // Every read and write must reach us, never the page cache.
  fi->direct_io = 1;
  fi->nonseekable = 1;
  if (ino == kWatchdog) fi->fh = watchdog_open();
  fuse_reply_open(req, fi);
}

void fs_read(fuse_req_t req, fuse_ino_t ino, size_t, off_t, fuse_file_info*) {
  if (ino != kStuck) {
    fuse_reply_buf(req, nullptr, 0);
    return;
  }
  std::lock_guard<std::mutex> lock(stuck_mutex);
  if (stuck_released) {
    fuse_reply_err(req, EIO);
    return;
  }
  stuck_reads.push_back(req);
}

void fs_write(fuse_req_t req, fuse_ino_t ino, const char* data, size_t size, off_t,
              fuse_file_info* fi) {
  if (ino != kWatchdog) {
    fuse_reply_err(req, EBADF);
    return;
  }
  watchdog_write(fi->fh, data, size);
  fuse_reply_write(req, size);
}

void fs_ioctl(fuse_req_t req, fuse_ino_t ino, unsigned int request, void*, fuse_file_info*,
              unsigned, const void* in, size_t in_size, size_t) {
  if (ino != kWatchdog) {
    fuse_reply_err(req, ENOTTY);
    return;
  }
  int answer = 0;
  bool answered = false;
  int error = watchdog_ioctl(request, in, in_size, &answer, &answered);
  if (error != 0) {
    fuse_reply_err(req, error);
  } else if (answered) {
    fuse_reply_ioctl(req, 0, &answer, sizeof answer);
  } else {
    // No data back: a request whose argument is a plain value, not a pointer, stays intact.
    fuse_reply_ioctl(req, 0, nullptr, 0);
  }
}

void fs_release(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) {
  if (ino == kWatchdog) watchdog_release(fi->fh);
  fuse_reply_err(req, 0);
}

void answer_stuck_reads() {
  std::vector<fuse_req_t> waiting;
  {
    std::lock_guard<std::mutex> lock(stuck_mutex);
    waiting.swap(stuck_reads);
  }
  for (fuse_req_t req : waiting) fuse_reply_err(req, EIO);
}

void wake(int) {}

}  // namespace

bool board_fs_mount(const std::string& mountpoint, std::string* error) {
  static fuse_lowlevel_ops ops = [] {
    fuse_lowlevel_ops o{};
    o.lookup = fs_lookup;
    o.getattr = fs_getattr;
    o.readdir = fs_readdir;
    o.open = fs_open;
    o.read = fs_read;
    o.write = fs_write;
    o.ioctl = fs_ioctl;
    o.release = fs_release;
    return o;
  }();
  char program[] = "custodo-board";
  char option[] = "-o";
  char name[] = "fsname=custodo-board";
  char* argv[] = {program, option, name, nullptr};
  fuse_args args = FUSE_ARGS_INIT(3, argv);
  session = fuse_session_new(&args, &ops, sizeof ops, nullptr);
  fuse_opt_free_args(&args);
  if (session == nullptr) {
    *error = "cannot start the board's file system";
    return false;
  }
  if (fuse_session_mount(session, mountpoint.c_str()) != 0) {
    fuse_session_destroy(session);
    session = nullptr;
    *error = "cannot mount the board's file system on " + mountpoint;
    return false;
  }
  // The loop leaves its blocking read when this signal interrupts it at unmount.
  struct sigaction action{};
  action.sa_handler = wake;
  sigaction(SIGUSR2, &action, nullptr);
  serving = true;
  server = std::thread([] {
    fuse_session_loop(session);
    serving = false;
  });
  return true;
}

void board_fs_unmount() {
  if (session == nullptr) return;
  stuck_release_all();
  fuse_session_exit(session);
  while (serving) {
    pthread_kill(server.native_handle(), SIGUSR2);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  server.join();
  // Only now: unmounting closes the device that the loop was reading.
  fuse_session_unmount(session);
  fuse_session_destroy(session);
  session = nullptr;
}

void stuck_unstick() { answer_stuck_reads(); }

void stuck_release_all() {
  {
    std::lock_guard<std::mutex> lock(stuck_mutex);
    stuck_released = true;
  }
  answer_stuck_reads();
}

void stuck_new_boot() {
  std::lock_guard<std::mutex> lock(stuck_mutex);
  stuck_released = false;
}

int stuck_waiting() {
  std::lock_guard<std::mutex> lock(stuck_mutex);
  return static_cast<int>(stuck_reads.size());
}
