// custodo-probe: the supervisor's log line, clock and shell runner, called one at a time on a
// simulated board, so that system tests can check their exact output; and a poster of raw
// messages to the supervisor's event queue, as any other program of the board could try.
#include <sys/msg.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/log_line.h"
#include "core/ms_clock.h"
#include "core/shell.h"

namespace {

// Posts `event` as a message of `size` bytes and `type`, creating the queue open to all if
// there is none yet. 0 when posted.
int post(int event, size_t size, long type) {
  int queue = msgget(static_cast<key_t>(0x80001000), IPC_CREAT | 0666);
  std::vector<char> message(sizeof(long) + std::max(size, sizeof event));
  std::memcpy(message.data(), &type, sizeof type);
  std::memcpy(message.data() + sizeof type, &event, sizeof event);
  if (queue < 0 || msgsnd(queue, message.data(), size, IPC_NOWAIT) != 0) {
    std::perror("custodo-probe post");
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc == 3 && std::strcmp(argv[1], "log") == 0) {
    log_line(argv[2]);
    return 0;
  }
  if (argc == 2 && std::strcmp(argv[1], "clock") == 0) {
    std::printf("%llu\n", static_cast<unsigned long long>(get_cur_time_ms()));
    return 0;
  }
  if (argc == 3 && std::strcmp(argv[1], "system") == 0) return tq_system(argv[2]);
  if (argc >= 3 && argc <= 5 && std::strcmp(argv[1], "post") == 0)
    return post(std::atoi(argv[2]), argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 4,
                argc > 4 ? std::atol(argv[4]) : 1);
  std::fprintf(stderr, "usage: custodo-probe log TEXT | clock | system CMDLINE | post EVENT [SIZE [TYPE]]\n");
  return 2;
}
