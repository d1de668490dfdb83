#include "core/threads.h"

#include <algorithm>
#include <climits>

#include "core/signals.h"

int start_thread(pthread_t* thread, void* (*body)(void*), size_t stack_bytes) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  size_t least = PTHREAD_STACK_MIN;
  pthread_attr_setstacksize(&attributes, std::max(stack_bytes, least));
  // The new thread starts with the main thread's signals blocked, so none is ever its.
  sigset_t blocked, kept;
  main_thread_signals(&blocked);
  pthread_sigmask(SIG_BLOCK, &blocked, &kept);
  int result = pthread_create(thread, &attributes, body, nullptr);
  pthread_sigmask(SIG_SETMASK, &kept, nullptr);
  pthread_attr_destroy(&attributes);
  return result;
}
