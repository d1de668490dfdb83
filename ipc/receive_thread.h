// The receive thread: other daemons' requests become events of the main loop or update-stage
// handling on this thread.
#pragma once
#include <atomic>
#include <string>

#include "platform/nodeipc.h"

extern std::atomic<int> ipc_enable;
// The prompt named by the last shutdown request, NUL-padded; not terminated when all 30 are used.
// Read through requested_prompt() alone.
extern char g_szSoundFile[30];

int create_ipc_thread();
// A whole copy of g_szSoundFile: a later request may rewrite it while the stop sequence reads it.
std::string requested_prompt();
// Acts on one received packet: an event for the main loop, or an update stage handled here.
void dispatch_packet(const IpcPacket& packet);
