// Reading the newest lines back.
#include <string.h>

#include "platform/host/trace_ring.h"
#include "platform/host/trace_text.h"
#include "xtr.h"

namespace {

using namespace plov::host;

int32_t fetch(Filter filter, char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code) {
  uint32_t unwanted;
  if (!code) code = &unwanted;
  if (!count) count = &unwanted;
  *count = 0;
  const uint64_t product = static_cast<uint64_t>(n) * width;
  if (!buffer || product > INT32_MAX) {
    *code = XTR_BAD_ARGUMENT;
    return 2;
  }
  const size_t size = static_cast<size_t>(product);
  memset(buffer, 0, size);
  const Ring* ring = trace_ring();
  if (!ring) {
    *code = XTR_NO_RING;
    return 8;
  }
  // From the newest line back, each put in front of what is there, until one does not fit.
  size_t start = size;
  const uint32_t last = ring->last.load(std::memory_order_relaxed);
  for (uint32_t age = 0; age < kSlots; ++age) {
    Line line;
    char text[kShownSize];
    if (!load_line(*ring, last - age, filter, line)) continue;
    const size_t length = show_line(line, text);
    if (length > start) break;
    start -= length;
    memcpy(buffer + start, text, length);
  }
  const size_t used = size - start;
  memmove(buffer, buffer + start, used);
  memset(buffer + used, 0, start);
  *count = static_cast<uint32_t>(used);
  *code = trace_ring_is_shared() ? XTR_SHARED_RING : XTR_OWN_RING;
  return 0;
}

}  // namespace

int32_t xtr_fetch(char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code) {
  return fetch({0, 0}, buffer, n, width, count, code);
}

int32_t xtr_fetch_pid(char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code) {
  return fetch({xtr_getpid(), 0}, buffer, n, width, count, code);
}

int32_t xtr_fetch_tid(char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code) {
  return fetch({xtr_getpid(), xtr_gettid()}, buffer, n, width, count, code);
}

int32_t xtr_fetch_of(uint32_t pid, char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code) {
  return fetch({pid, 0}, buffer, n, width, count, code);
}
