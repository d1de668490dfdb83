// When the update process Upgrader may be launched again.
#pragma once
#include <string>

enum UpgraderDecision { UPGRADER_FIRST_LAUNCH, UPGRADER_RELAUNCH, UPGRADER_GIVE_UP };

// The first launch and one relaunch are always allowed; a further relaunch only within 4
// seconds of the previous launch, else the update is given up. Times are seconds since boot;
// a last launch of 0 means none.
UpgraderDecision upgrader_decision(int launch_count, int last_launch, int now);

// StartProc's rule for Upgrader: 1 when it was launched, 0 when not.
int start_upgrader(const std::string& name);
