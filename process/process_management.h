// The robot's daemons, read from the process list, and their start, watch and stop.
#pragma once
#include <atomic>
#include <deque>
#include <string>

// One daemon of the process list.
struct ProcessInfo {
  int pid = -1;  // last known process id; -1 until found
  std::string Name;
  std::string Cmd;
  int KeyProc = 0;  // non-zero: losing it restarts everything
  int KillTimeout = 0;
  int WaitAfterStart = 0;
};

enum KILL_ACTION { KILL_NOW = 0, KILL_WAIT = 1, KILL_WAIT_LOGD = 2 };

class RobotProcessManagement {
 public:
  // process_list.cpp: reads the list file; ends the process with 0 when it cannot be opened.
  void InitialConfig(const std::string& path);
  // When the integrity check failed, AppBridge and netmgrd are left out of the list.
  void SetIntegrityFailed(bool failed) { integrity_failed_ = failed; }

  // start.cpp
  int StartProc(ProcessInfo& rec);
  void StartAllProcess();
  int PidOf(const char* name);
  int ReCheck(ProcessInfo& rec);
  void CheckAllProcess();

  // monitor.cpp
  int InitialMonitor();
  int Monitor(const int& unused);

  // stop.cpp
  int KillAllProcess(KILL_ACTION action);
  int SingleProcessHandler(int pid, int mode);
  int WaitProcessEnd(int pid, int timeout);

  // In list order; walked from front to back, and back to front when stopping.
  std::deque<ProcessInfo> processes;

 private:
  bool integrity_failed_ = false;
};

extern RobotProcessManagement ProcessManagement;

// 1 while StartProc may launch Upgrader.
extern std::atomic<int> g_upgrader_normal_exit;
// 1 while AppBridge was last seen running.
extern std::atomic<int> appbridge_alive;
