// A function by the loose name of its module.
#include <dlfcn.h>
#include <stdio.h>

#include <string_view>

#include "frame/call.h"
#include "loader/locked_loader.h"
#include "xact.h"
#include "xtr.h"

namespace plov::loader {
namespace {

constexpr int kFlags = RTLD_NOW | RTLD_GLOBAL;

// Lengths from which a name is not tried again.
constexpr size_t kTooLongForSuffix = 252, kTooLongForPrefix = 249, kTooLongForUnderscore = 257;

void* try_module(const char* name) {
  xtr_trace("XDLL   F:    Could not load module, try name [%s]", name);
  return locked_dlopen(name, kFlags);
}

void* open_module(const char* name) {
  if (void* const handle = locked_dlopen(name, kFlags)) return handle;
  const std::string_view text(name);
  if (text.size() >= kTooLongForSuffix || text.ends_with(".so")) return nullptr;
  char other[kTooLongForSuffix + sizeof ".so"];
  snprintf(other, sizeof other, "%s.so", name);
  if (void* const handle = try_module(other)) return handle;
  if (text.size() >= kTooLongForPrefix || text.starts_with("lib")) return nullptr;
  snprintf(other, sizeof other, "lib%s.so", name);
  return try_module(other);
}

struct Found {
  uint32_t sysrc, comprc;
  void* address;
  void* handle;
};

constexpr uint32_t kFound = 0;

Found look_up(const char* module, const char* function) {
  void* const handle = open_module(module);
  if (!handle) {
    xtr_trace("XDLL   F:    Error, could not load the module, dlerror()=[%s]", locked_dlerror());
    return {frame::kRefused, XACT_NOT_FOUND, nullptr, nullptr};
  }
  void* address = locked_dlsym(handle, function);
  // A longer name that is not found passes as found, with a null address: callers test the address.
  if (address || std::string_view(function).size() >= kTooLongForUnderscore) return {kFound, 0, address, handle};
  char other[kTooLongForUnderscore + 1];
  snprintf(other, sizeof other, "_%s", function);
  xtr_trace("XDLL   F:    Could not load function, try name [%s]", other);
  address = locked_dlsym(handle, other);
  if (address) return {kFound, 0, address, handle};
  xtr_trace("XDLL   F:    Error, could not load the function, dlerror()=[%s]", locked_dlerror());
  return {frame::kRefused, XACT_NOT_FOUND, nullptr, handle};
}

// The common body. On success `*comprc` is not even read: callers leave there what an earlier call said.
Found get_func_addr(const char* module, const char* function, void** address, uint32_t* comprc) {
  const Found found = look_up(module, function);
  *address = found.address;
  if (found.sysrc != 0) *comprc = found.comprc;
  xtr_trace("XDLL   F: <- get_func_addr(): sysrc=%d, crc=%d", found.sysrc, found.comprc);
  return found;
}

}  // namespace
}  // namespace plov::loader

int32_t xact_get_func_addr(const char* module, const char* function, void** address, uint32_t* comprc) {
  xtr_trace("XDLL   F: -> xact_get_func_addr(): pszDLLName=[%s], pszFunctionName=[%s]", module, function);
  const auto found = plov::loader::get_func_addr(module, function, address, comprc);
  xtr_trace("XDLL   F: <- xact_get_func_addr(): sysrc=%d, crc=%d", found.sysrc, found.comprc);
  return static_cast<int32_t>(found.sysrc);
}

int32_t xact_get_func_addr2(const char* module, const char* function, void** address, void** handle, uint32_t* comprc) {
  xtr_trace("XDLL   F: -> xact_get_func_addr2(): pszDLLName=[%s], pszFunctionName=[%s]", module, function);
  const auto found = plov::loader::get_func_addr(module, function, address, comprc);
  *handle = found.handle;
  xtr_trace("XDLL   F: <- xact_get_func_addr2(): sysrc=%d, crc=%d", found.sysrc, found.comprc);
  return static_cast<int32_t>(found.sysrc);
}

int32_t xact_release_func_addr(void*, void*, uint32_t* comprc) {
  xtr_trace("XDLL   F: -> xact_release_func_addr()");
  *comprc = 0;
  xtr_trace("XDLL   F: <- xact_release_func_addr()");
  return 0;
}
