// The text by which crash reports name a thread.
#include <string.h>

#include <algorithm>

#include "frame/call.h"
#include "frame/caller_memory.h"
#include "frame/probe.h"
#include "frame/shared_mutex.h"
#include "frame/trace_line.h"
#include "pce/thread_record.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

// Copies what fits of the caller's tag. One of a wrong length is refused and copied all the same.
bool chk_user_tag(frame::Call& call, const char* caller_tag, char (&tag)[kTagSize]) {
  uint32_t length = 0, scratch = 0;
  int32_t rc = frame::probe_string(caller_tag, &length, &scratch);
  if (rc == 0) {
    // Passed because it could not be made: then nothing was counted.
    if (scratch == XPCE_PROBE_WRITABLE) length = static_cast<uint32_t>(strnlen(caller_tag, kTagSize));
    const size_t kept = std::min<size_t>(length, kTagSize - 1);
    if (!frame::copy_from_caller(tag, caller_tag, kept)) rc = 2;
    tag[rc == 0 ? kept : 0] = '\0';
  }
  if (rc != 0) {
    xtr_trace("XPCE___F:    chk_user_tag: User tag text pointer is invalid. rc = %d", rc);
    return call.refuse(XPCE_BAD_TAG);
  }
  if (length == 0 || length > XPCE_TAG_LIMIT) {
    xtr_trace("XPCE___F:    chk_user_tag: User tag text length of %d is too long.", static_cast<int>(length));
    call.refuse(XPCE_BAD_TAG_LENGTH);
  }
  return true;
}

}  // namespace
}  // namespace plov::pce

int32_t xpce_set_user_tag(const char* tag, uint32_t* comprc) {
  using namespace plov;
  frame::Call call("xpce_set_user_tag", "XPCE___T: -> xpce_set_user_tag:", "XPCE___T: <- xpce_set_user_tag:", comprc);
  char text[pce::kTagSize] = {};
  if (call.ok() && pce::chk_user_tag(call, tag, text)) {
    const frame::SharedMutex mutex(call.record());
    if (mutex.held())
      if (pce::ThreadRecord* const thread = pce::init_thd(call.record())) memcpy(thread->tag, text, sizeof text);
  }
  return call.leave(frame::kPceTag);
}
