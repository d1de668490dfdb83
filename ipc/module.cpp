#include "ipc/messages.h"
#include "platform/nodeipc.h"

// The supervisor is module 7 of the robot's message network.
int nodeipc_module = MODULE_WATCHDOG;
