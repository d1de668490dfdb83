// One boot of the board: a fresh PID, mount and IPC namespace whose PID 1 is the board's init
// (custodo-board itself, re-executed), which starts the supervisor.
#pragma once
#include <sys/types.h>

#include <string>
#include <vector>

// How the init tells the outer process why it ended.
constexpr int kInitPowerOff = 10;
constexpr int kInitReboot = 11;
constexpr int kInitStopped = 12;  // the supervisor was asked to stop and did, or ran out of time

// While this file exists below the root, the init does not restart the supervisor.
constexpr const char* kHoldFile = "sim/hold";

struct BootPlan {
  std::string root;
  std::string supervisor;
  std::vector<std::string> supervisor_args;
  int console = -1;  // where the board's processes write
};

// Starts boot number `number`; returns the pid of the process that relays the init's exit
// status (-1 on failure), with the init's host pid in *init (also in sim/init.pid).
pid_t boot_start(const BootPlan& plan, int number, pid_t* init);

// The boot that runs now (0 before the first) and its init's host pid (-1 when none).
int current_boot();
pid_t current_init();
void boot_ended();
