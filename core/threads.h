// Worker threads of the supervisor. mlockall locks every page of every mapping, a thread's
// stack included, so each thread gets an explicit small stack instead of the default 8 MiB.
#pragma once
#include <pthread.h>

#include <cstddef>

#ifdef CUSTODO_SANITIZE
// The sanitizers' redzones make frames several times larger.
constexpr size_t kSanitizerStackFactor = 4;
#else
constexpr size_t kSanitizerStackFactor = 1;
#endif

// Sized by measurement (the pages each stack touched, without mlockall): the feeder, the clock
// sync and the IPC threads peak at 8 to 12 KiB with the thread's own control block, through
// log lines, children and their pipes, the boot-loader flags and the IPC library's receive.
// 32 KiB leaves more than twice that for a board library that needs more.
constexpr size_t kSmallStackBytes = 32 * 1024 * kSanitizerStackFactor;

// Creates a joinable thread running body(nullptr) on a stack of `stack_bytes` (or the system's
// least, where that is more: 128 KiB on aarch64), with the signals that only the main thread
// takes blocked; the pthread_create result.
int start_thread(pthread_t* thread, void* (*body)(void*), size_t stack_bytes = kSmallStackBytes);
