// The receive thread: other daemons' requests become events of the main loop or update-stage
// handling on this thread.
#pragma once
#include <pthread.h>

#include <atomic>

extern std::atomic<int> ipc_enable;
extern pthread_t ipc_thread;
// The prompt named by the last shutdown request, NUL-padded; not terminated when all 30 are used.
extern char g_szSoundFile[30];

int create_ipc_thread();
void* ipc_com_rcv_thread(void*);
