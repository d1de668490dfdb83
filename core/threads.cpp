#include "core/threads.h"

int start_thread(pthread_t* thread, void* (*body)(void*), size_t stack_bytes) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stack_bytes);
  int result = pthread_create(thread, &attributes, body, nullptr);
  pthread_attr_destroy(&attributes);
  return result;
}
