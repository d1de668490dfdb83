#include "sound/alsa_library.h"

#include <dlfcn.h>

#include <mutex>

namespace {

AlsaLibrary library;
const char* failure = nullptr;

void load() {
  // Global: the plugins ALSA loads in turn find it as their own.
  void* handle = dlopen("libasound.so.2", RTLD_NOW | RTLD_GLOBAL);
  if (handle == nullptr) {
    failure = dlerror();
    return;
  }
#define CUSTODO_ALSA_RESOLVE(name)                                                \
  library.name = reinterpret_cast<decltype(library.name)>(dlsym(handle, #name)); \
  if (library.name == nullptr) {                                                  \
    failure = dlerror();                                                          \
    return;                                                                       \
  }
  CUSTODO_ALSA_FUNCTIONS(CUSTODO_ALSA_RESOLVE)
#undef CUSTODO_ALSA_RESOLVE
}

}  // namespace

const AlsaLibrary* load_alsa(const char** error) {
  static std::once_flag once;
  std::call_once(once, load);
  if (failure == nullptr) return &library;
  *error = failure;
  return nullptr;
}

const AlsaLibrary& alsa() { return library; }
