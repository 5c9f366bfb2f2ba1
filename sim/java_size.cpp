// How long a Java-served field is: the file is read anew at each call, so that a change needs no restart.
#include "frame/memory.h"
#include "sim/size_file.h"
#include "xdfc.h"
#include "xsim.h"
#include "xtr.h"

namespace plov::sim {
namespace {

constexpr char kFile[] = "ywkzsfm.h";

int32_t look_up(int32_t id) {
  uint32_t size = 0, code = 0;
  int32_t result = xdfc_query_file_size(kFile, &size, &code);
  if (result != 0) {
    xtr_trace("XSIMSJLF: error getting file size  src = %d rc = %d", result, code);
    return 0;
  }
  xtr_trace("XSIMSJLF: file size is %d", size);
  const frame::Owned<char> text(static_cast<char*>(PLOV_MALLOC(size)));
  if (!text) {
    xtr_trace("XSIMSJLF: couldn't allocate storage for file");
    return 0;
  }
  xtr_trace("XSIMSJLF: about to open file");
  // As many bytes as the opening probes.
  union {
    FILE* stream;
    char room[sizeof(FILE)];
  } handle = {};
  uint32_t action;
  result = xdfc_search_file_open(kFile, 0, XDFC_ACCESS_READ_ONLY, XDFC_E_OPEN, 0, &handle.stream, &action, &code);
  if (result != 0) {
    // The text of the step before: it is what searches of old traces look for.
    xtr_trace("XSIMSJLF: couldn't allocate storage for file");
    return 0;
  }
  xtr_trace("XSIMSJLF: about to read file");
  uint32_t done = 0, position = 0;
  result = xdfc_random_read(handle.stream, text.get(), size, XDFC_FROM_BEGINNING, 0, &done, &position, &code);
  if (result != 0) xtr_trace("XSIMSJLF: couldn't read file src rc = %d %d", result, code);
  xdfc_close_file(handle.stream, &code);
  if (result != 0) return 0;
  const int32_t length = listed_length({text.get(), done}, id);
  if (length != 0) xtr_trace("XSIMSJLF: found our entry  lenval = %d", length);
  return length;
}

}  // namespace
}  // namespace plov::sim

int32_t xsim_java_size(int32_t id) {
  xtr_trace("XSIMSJLT: ->sim_java_size");
  xtr_trace("XSIMSIZF: looking for %d", id);
  const int32_t length = plov::sim::look_up(id);
  xtr_trace("XSIMSJLT: <-xsim_java_size");
  return length;
}
