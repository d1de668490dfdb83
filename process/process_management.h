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

// What one check of the list found.
enum MonitorResult {
  MONITOR_ALL_WELL = 0,          // every daemon runs, was found again, or could not be restarted
  MONITOR_KEY_PROCESS_LOST = 2,  // the check stopped at a key process that is gone
  MONITOR_RESTARTED = 3,         // ordinary daemons were restarted: their ids are to be found
};

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
  MonitorResult Monitor();

  // stop.cpp
  int KillAllProcess(KILL_ACTION action);
  // One daemon, as KillAllProcess stops each: 1 when it was waited for and ended.
  int StopProcess(const ProcessInfo& rec, KILL_ACTION action);
  // The polite signal, SIGHUP, or SIGKILL to the parent of a zombie.
  int SingleProcessHandler(int pid);
  int WaitProcessEnd(int pid, int timeout);

  // In list order; walked from front to back, and back to front when stopping.
  std::deque<ProcessInfo> processes;

 private:
  bool integrity_failed_ = false;
};

extern RobotProcessManagement ProcessManagement;

// 1 while AppBridge was last seen running.
extern std::atomic<int> appbridge_alive;
