// IPC with a running board: any packet, the requests the robot's daemons send to the
// supervisor, and receiving what the supervisor sends to a module.
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "ipc/messages.h"
#include "platform/board_paths.h"
#include "platform/nodeipc.h"
#include "sim/board/commands.h"
#include "sim/common/hex_text.h"
#include "update/update_stage.h"

// The module that RecvPacket binds: chosen by `recv`.
int nodeipc_module = 0;

namespace {

constexpr size_t kPayloadSize = sizeof(IpcPacket::payload);

// Hex bytes, which may be set apart by blanks or colons.
bool parse_hex(const std::string& text, std::string* bytes) {
  std::string digits;
  for (char c : text)
    if (c != ' ' && c != ':') digits += c;
  return sim::from_hex(digits, bytes);
}

int send_packet(const std::string& dir, uint32_t id, const std::string& payload, uint32_t length) {
  std::string root;
  if (need_running_board(dir, &root) != 0) return 1;
  if (payload.size() > kPayloadSize) return fail("a payload holds at most 32 bytes");
  IpcPacket packet{};
  packet.id = id;
  packet.length = length;
  std::memcpy(packet.payload, payload.data(), payload.size());
  IpcSendOptions options{{1, 0, 0, 0}};
  if (SendPacket(&packet, &options) < 0) {
    char text[96];
    std::snprintf(text, sizeof text, "cannot send 0x%08X to module %u: %s", id, id >> 24,
                  std::strerror(errno));
    return fail(text);
  }
  return 0;
}

std::string int32_bytes(uint32_t value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

int shutdown_request(const Args& args, bool reboot, const char* usage) {
  if (args.empty() || args.size() > 2) return fail(usage);
  ShutdownOption option{};
  option.reboot = reboot ? 1 : 0;
  if (args.size() == 2) {
    if (args[1].size() > sizeof option.sound) return fail("a prompt name holds at most 30 bytes");
    std::memcpy(option.sound, args[1].data(), args[1].size());
  }
  std::string payload(reinterpret_cast<const char*>(&option), sizeof option);
  return send_packet(args[0], MSG_SHUTDOWN_WATCHDOG, payload, sizeof option);
}

char timeout_text[160];
char socket_path[120];

void timed_out(int) {
  ssize_t ignored = write(STDERR_FILENO, timeout_text, std::strlen(timeout_text));
  (void)ignored;
  unlink(socket_path);
  _exit(1);
}

}  // namespace

int cmd_send(const Args& args) {
  const char* usage = "usage: custodo-board send DIR ID [PAYLOAD] [--len N]";
  const option kOptions[] = {{"len", required_argument, nullptr, 'l'}, {}};
  Args words;
  unsigned long long length = 0;
  bool has_length = false;
  auto on_option = [&](int, const std::string& value) {
    has_length = parse_number(value, UINT32_MAX, &length);
    if (!has_length) fail("bad length: " + value);
    return has_length;
  };
  if (!parse_options(args, kOptions, on_option, &words) || words.size() < 2 || words.size() > 3)
    return fail(usage);
  unsigned long long id = 0;
  if (!parse_number(words[1], UINT32_MAX, &id)) return fail("bad message id: " + words[1]);
  std::string payload;
  if (words.size() == 3 && !parse_hex(words[2], &payload))
    return fail("bad payload (hex bytes expected): " + words[2]);
  return send_packet(words[0], static_cast<uint32_t>(id), payload,
                     static_cast<uint32_t>(has_length ? length : payload.size()));
}

int cmd_poweroff(const Args& args) {
  return shutdown_request(args, false, "usage: custodo-board poweroff DIR [PROMPT]");
}

int cmd_reboot(const Args& args) {
  return shutdown_request(args, true, "usage: custodo-board reboot DIR [PROMPT]");
}

int cmd_quom_reset(const Args& args) {
  if (args.size() != 1) return fail("usage: custodo-board quom-reset DIR");
  return send_packet(args[0], MSG_QUOM_RESET, "", 0);
}

int cmd_chimer_reboot(const Args& args) {
  if (args.size() != 1) return fail("usage: custodo-board chimer-reboot DIR");
  return send_packet(args[0], MSG_REBOOT_WATCHDOG, "", 0);
}

int cmd_stage_start(const Args& args) {
  unsigned long long stage = 0;
  if (args.size() != 2 || !parse_number(args[1], UINT32_MAX, &stage))
    return fail("usage: custodo-board stage-start DIR STAGE");
  return send_packet(args[0], MSG_UPDATE_STAGE_START_WATCHDOG, int32_bytes(stage), 4);
}

int cmd_stage_done(const Args& args) {
  unsigned long long stage = 0, result = 0;
  if (args.size() != 3 || !parse_number(args[1], UINT32_MAX, &stage) ||
      !parse_number(args[2], UINT32_MAX, &result))
    return fail("usage: custodo-board stage-done DIR STAGE RESULT");
  static_assert(sizeof(_Robot_UpdateStageComplete) == 8, "stage, then result");
  return send_packet(args[0], MSG_UPDATE_STAGE_DONE_WATCHDOG,
                     int32_bytes(stage) + int32_bytes(result), 8);
}

int cmd_recv(const Args& args) {
  const char* usage = "usage: custodo-board recv DIR MODULE [--timeout S] [--count N]";
  constexpr double kLongestTimeout = 86400;  // also keeps out "inf" and "nan"
  const option kOptions[] = {{"timeout", required_argument, nullptr, 't'},
                             {"count", required_argument, nullptr, 'c'},
                             {}};
  Args words;
  double timeout = 10;
  unsigned long long count = 1;
  auto on_option = [&](int found, const std::string& value) {
    bool valid = false;
    if (found == 'c') {
      valid = parse_number(value, 1000000, &count) && count != 0;
    } else {
      char* end = nullptr;
      timeout = std::strtod(value.c_str(), &end);
      valid = *end == '\0' && timeout > 0 && timeout <= kLongestTimeout;
    }
    if (!valid) fail((found == 'c' ? "bad count: " : "bad time-out: ") + value);
    return valid;
  };
  if (!parse_options(args, kOptions, on_option, &words)) return fail(usage);
  unsigned long long module = 0;
  if (words.size() != 2 || !parse_number(words[1], 255, &module)) return fail(usage);
  std::string root;
  if (need_running_board(words[0], &root) != 0) return 1;

  nodeipc_module = static_cast<int>(module);
  std::snprintf(socket_path, sizeof socket_path, "%s/%llu", board_path(BoardPath::IpcSocketDir),
                module);
  std::snprintf(timeout_text, sizeof timeout_text,
                "custodo-board: no packet for module %llu within %g s\n", module, timeout);
  signal(SIGALRM, timed_out);
  itimerval limit{};
  limit.it_value.tv_sec = static_cast<time_t>(timeout);
  limit.it_value.tv_usec = static_cast<suseconds_t>((timeout - static_cast<double>(limit.it_value.tv_sec)) * 1e6);
  setitimer(ITIMER_REAL, &limit, nullptr);
  for (unsigned long long n = 0; n < count; ++n) {
    IpcPacket packet{};
    int got = RecvPacket(&packet);
    if (got <= 0) {
      unlink(socket_path);
      return fail("cannot receive for module " + std::to_string(module) + ": " + std::strerror(errno));
    }
    std::printf("%s\n", sim::packet_text(packet).c_str());
    std::fflush(stdout);
  }
  unlink(socket_path);
  return 0;
}
