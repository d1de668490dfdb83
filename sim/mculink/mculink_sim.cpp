// The MCU link simulator: answers the MCU library's calls from the state in sim/mcu/state
// (read afresh on every call) and records every call, one line each, in sim/mcu/calls.log as
// the call's name, what it was given, its result and what it handed back.
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/board_time.h"
#include "platform/mculink.h"
#include "sim/common/hex_text.h"
#include "sim/common/sim_files.h"
#include "sim/mculink/mcu_state.h"

namespace {

constexpr size_t kVersionRecord = 64;
constexpr size_t kPnBuffer = 32;

int uart_fd = -1;

void record(const std::string& line) { sim::record(sim::kMcuCalls, line); }

// What the MCU answers to a call: the state, and the result configured under `result_key`
// (0 without one), or -1 for every call while the link is down.
struct Answer {
  sim::McuState state;
  bool up;
  int result;
};

Answer answer(const char* result_key) {
  Answer a{sim::mcu_state_load(), false, -1};
  a.up = a.state["link"] == "up";
  if (a.up)
    a.result = result_key ? static_cast<int>(sim::mcu_state_number(a.state, result_key)) : 0;
  return a;
}

// Copies a text into a fixed record, zero-filled, cut to the record's size.
void fill(void* record, size_t size, const std::string& text) {
  std::memset(record, 0, size);
  std::memcpy(record, text.data(), std::min(size, text.size()));
}

}  // namespace

extern "C" {

int init_uart(void) {
  Answer a = answer(nullptr);
  int fd = -1;
  if (a.up) {
    if (uart_fd >= 0) close(uart_fd);
    fd = uart_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  }
  record("init_uart " + std::to_string(fd));
  return fd;
}

void close_uart(void) {
  if (uart_fd >= 0) close(uart_fd);
  uart_fd = -1;
  record("close_uart");
}

int check_mcu_mode(int fd) {
  Answer a = answer("mode");
  int mode = fd >= 0 ? a.result : -1;
  record("check_mcu_mode " + std::to_string(mode));
  return mode;
}

int check_mcu_error(int* err) {
  Answer a = answer("error_result");
  if (a.result > 0 && err != nullptr)
    *err = static_cast<int>(sim::mcu_state_number(a.state, "error"));
  record("check_mcu_error " + std::to_string(a.result) +
         " err=" + (err ? std::to_string(*err) : "-"));
  return a.result;
}

int disable_mcu_heartbeat(void) {
  Answer a = answer("heartbeat_result");
  record("disable_mcu_heartbeat " + std::to_string(a.result));
  return a.result;
}

int get_utc(uint32_t* seconds) {
  Answer a = answer("utc_result");
  std::string line = "get_utc " + std::to_string(a.result);
  if (a.result >= 0 && seconds != nullptr) {
    *seconds = sim::mcu_clock_now(a.state);
    line += " " + std::to_string(*seconds);
  }
  record(line);
  return a.result;
}

uint32_t utc2mcutime(uint32_t t) {
  struct timezone zone {};
  board_gettimeofday(nullptr, &zone);
  uint32_t local = t - static_cast<uint32_t>(60 * zone.tz_minuteswest);
  record("utc2mcutime " + std::to_string(t) + " " + std::to_string(local));
  return local;
}

int sent_cmd(int command, int length, const void* data, int flag) {
  Answer a = answer("cmd_result");
  std::string bytes =
      data != nullptr && length > 0 ? sim::to_hex(data, static_cast<size_t>(length)) : "";
  record("sent_cmd " + std::to_string(command) + " " + std::to_string(length) + " " + bytes + " " +
         std::to_string(flag) + " " + std::to_string(a.result));
  return a.result;
}

int check_version(void* record64) {
  Answer a = answer("version_result");
  if (a.up && record64 != nullptr)
    fill(record64, kVersionRecord, sim::mcu_state_text(a.state, "version"));
  record("check_version " + std::to_string(a.result));
  return a.result;
}

const char* FwInfo2Str(const void* record64) {
  static char text[kVersionRecord + 1];
  std::memset(text, 0, sizeof text);
  if (record64 != nullptr) std::memcpy(text, record64, kVersionRecord);
  record(std::string("FwInfo2Str ") + text);
  return text;
}

// Blocks for the configured update time, as flashing the MCU does.
int upgrade_mcu_if_not_match(const char* match_line, void* result64) {
  Answer a = answer("upgrade_result");
  if (a.up) board_sleep(static_cast<unsigned>(sim::mcu_state_number(a.state, "upgrade_delay")));
  std::string line = match_line ? match_line : "";
  line.erase(line.find_last_not_of("\r\n") + 1);
  if (result64 != nullptr) std::memset(result64, 0, kVersionRecord);
  record("upgrade_mcu_if_not_match " + line + " " + std::to_string(a.result));
  return a.result;
}

int get_pn(char* buf32) {
  Answer a = answer("pn_result");
  if (a.up && buf32 != nullptr) fill(buf32, kPnBuffer, sim::mcu_state_text(a.state, "pn"));
  record("get_pn " + std::to_string(a.result));
  return a.result;
}

}  // extern "C"
