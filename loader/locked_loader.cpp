#include "loader/locked_loader.h"

#include <dlfcn.h>

#include "xact.h"
#include "xtr.h"

// Recursive: dlopen runs the module's constructors, and these may load in their turn.
pthread_mutex_t xact_mutex_sem = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

namespace plov::loader {
namespace {

class Lock {
 public:
  Lock() { pthread_mutex_lock(&xact_mutex_sem); }
  ~Lock() { pthread_mutex_unlock(&xact_mutex_sem); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

}  // namespace

void* locked_dlopen(const char* file, int flags) {
  const Lock lock;
  return dlopen(file, flags);
}

void* locked_dlsym(void* handle, const char* symbol) {
  const Lock lock;
  return dlsym(handle, symbol);
}

char* locked_dlerror() {
  const Lock lock;
  return dlerror();
}

}  // namespace plov::loader

void* xact_dlopen(const char* file, int32_t flags) {
  xtr_trace("XDLL   F: -> xact_dlopen()");
  void* const handle = plov::loader::locked_dlopen(file, flags);
  xtr_trace("XDLL   F: <- xact_dlopen()");
  return handle;
}

void* xact_dlsym(void* handle, const char* symbol) {
  xtr_trace("XDLL   F: -> xact_dlsym()");
  void* const address = plov::loader::locked_dlsym(handle, symbol);
  xtr_trace("XDLL   F: <- xact_dlsym()");
  return address;
}

char* xact_dlerror(void) {
  xtr_trace("XDLL   F: -> xact_dlerror()");
  char* const text = plov::loader::locked_dlerror();
  xtr_trace("XDLL   F: <- xact_dlerror()");
  return text;
}

int32_t xact_dlclose(void) {
  xtr_trace("XDLL   F: -> xact_dlclose()");
  xtr_trace("XDLL   F: <- xact_dlclose()");
  return 0;
}
