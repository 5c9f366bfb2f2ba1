// The dynamic loader, each call of it under `xact_mutex_sem`.
#ifndef PLOV_LOADER_LOCKED_LOADER_H
#define PLOV_LOADER_LOCKED_LOADER_H

namespace plov::loader {

void* locked_dlopen(const char* file, int flags);
void* locked_dlsym(void* handle, const char* symbol);
char* locked_dlerror();

}  // namespace plov::loader

#endif
