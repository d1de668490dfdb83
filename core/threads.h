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

// Enough for log lines, a shell command or a pipe, and the board libraries' calls.
constexpr size_t kSmallStackBytes = 128 * 1024 * kSanitizerStackFactor;

// Creates a joinable thread running body(nullptr) on a stack of `stack_bytes`, with the
// signals that only the main thread takes blocked; the pthread_create result.
int start_thread(pthread_t* thread, void* (*body)(void*), size_t stack_bytes = kSmallStackBytes);
