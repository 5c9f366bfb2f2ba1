// System events: class-0 logs whose blocks are the substitution variables of a message. The Java side finds the first
// variable in block 3, the second in block 4 and so on, with their number in front.
#include <string.h>

#include <utility>

#include "frame/call.h"
#include "frame/caller_memory.h"
#include "log/event_blocks.h"
#include "xcsf.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {

frame::Owned<uint8_t> zeroed(uint32_t size) {
  frame::Owned<uint8_t> data(static_cast<uint8_t*>(PLOV_MALLOC(size)));
  if (data) memset(data.get(), 0, size);
  return data;
}

namespace {

constexpr uint8_t kFirstVariableBlock = 3;

// Of a caller's data: the log keeps no more, and a copy of more may be beyond memory.
uint32_t kept(uint32_t size) {
  return size < XLOG_MAX_BLOCK_SIZE ? size : XLOG_MAX_BLOCK_SIZE;
}

// The codes of the two builders differ in their numbers only.
struct Codes {
  uint32_t node, data;
};

struct Blocks {
  EventBlocks chain;
  frame::Call& call;
  const Codes codes;

  bool no_memory() { return call.refuse(XLOG_RECORD_NO_INPUT_MEMORY); }

  bool add(uint8_t id, frame::Owned<uint8_t> data, uint32_t size) {
    return chain.push_front(id, std::move(data), size) || no_memory();
  }

  // A copy with a zero byte behind it.
  bool take(const void* from, uint32_t size, uint32_t code, frame::Owned<uint8_t>* copy) {
    *copy = zeroed(size + 1);
    if (!*copy) return no_memory();
    return frame::copy_from_caller(copy->get(), from, size) || call.refuse(code);
  }

  // An unknown kind is kept as the bytes that it came with. The caller's node is only looked at: one without data
  // counts as an empty text whatever its kind says.
  bool add_variable(const xlog_variable& variable, uint8_t id) {
    const uint32_t length = variable.kind == XLOG_VARIABLE_EMPTY ? 0 : variable.length;
    frame::Owned<uint8_t> text;
    if (!take(variable.data, length, codes.data, &text)) return false;
    if (length != 0 && variable.kind == XLOG_VARIABLE_CONVERTED) {
      uint32_t code_page = 0, unconvertible;
      xcsf_nls_cvtcode(text.get(), text.get(), static_cast<int32_t>(length), XCSF_TO_PC, &code_page, &unconvertible);
    }
    if (length == 0 || variable.kind != XLOG_VARIABLE_HEX) return add(id, std::move(text), length + 1);
    frame::Owned<uint8_t> digits = zeroed(2 * length + 1);
    if (!digits) return no_memory();
    xcsf_hex2char(reinterpret_cast<char*>(digits.get()), text.get(), length);
    return add(id, std::move(digits), 2 * length + 1);
  }

  bool add_variables(const xlog_variable* node) {
    uint32_t count = 0;
    for (xlog_variable variable; node; node = variable.next) {
      if (!frame::take_from_caller(&variable, node, sizeof variable)) return call.refuse(codes.node);
      // As the recorder would say; a chain that comes back to itself ends here.
      if (++count > EventBlocks::kMaxVariables) return call.refuse(XLOG_RECORD_TOO_MANY_BLOCKS);
      if (variable.length != 0 && !call.readable(variable.data, variable.length, codes.data)) return false;
      if (!add_variable(variable, static_cast<uint8_t>(count + kFirstVariableBlock - 1))) return false;
    }
    frame::Owned<uint8_t> number = zeroed(sizeof count);
    if (!number) return no_memory();
    memcpy(number.get(), &count, sizeof count);
    return add(XLOG_SYSTEM_EVENT_BLOCK_ID, std::move(number), sizeof count);
  }

  bool add_tower(uint16_t user, const char* caller) {
    uint32_t length;
    frame::Owned<uint8_t> text;
    if (caller && (!call.text(caller, codes.data, &length) || !take(caller, kept(length), codes.data, &text)))
      return false;
    return build_tower_data(user, reinterpret_cast<const char*>(text.get()), &chain) || no_memory();
  }
};

void record(frame::Call& call, xlog_log_request* request, EventBlocks* blocks) {
  request->data = blocks->chain();
  uint32_t code = 0;
  call.set_sysrc(static_cast<uint32_t>(xlog_record(request, &code)));
  call.set_comprc(code);
}

void sysevent(frame::Call& call, const xlog_system_event* caller) {
  xlog_system_event event;
  if (!call.readable(caller, sizeof event, XLOG_SYSEVENT_BAD_REQUEST)) return;
  if (!frame::copy_from_caller(&event, caller, sizeof event)) {
    call.refuse(XLOG_SYSEVENT_BAD_REQUEST);
    return;
  }
  xlog_log_request request = {};
  request.flags = event.options;
  request.eventid.user = event.user;
  memcpy(request.event_name, event.event_name, sizeof request.event_name);
  if ((event.options & XLOG_KEEP_INFORMATIONAL) != 0) {
    xtr_trace("XLOG   T: options = XLOG_KEEP_INFORMATIONAL");
    request.eventid.log_type = 1;
  }
  if ((event.options & XLOG_MAIN_LOG_FLAG) == 0)
    memcpy(request.target_session, event.target_session, sizeof event.target_session);

  Blocks blocks = {{}, call, {XLOG_SYSEVENT_BAD_NODE, XLOG_SYSEVENT_BAD_DATA}};
  if (blocks.add_variables(event.variables) && blocks.add_tower(event.user, event.tower))
    record(call, &request, &blocks.chain);
}

void e4_sysevent(frame::Call& call, xlog_e4_system_event* caller) {
  xlog_e4_system_event event;
  if (!call.ok()) return;
  if (!frame::take_from_caller(&event, caller, sizeof event)) {
    call.refuse(XLOG_E4_SYSEVENT_BAD_REQUEST);
    return;
  }
  const uint32_t extra_size = event.extra_size;
  if (extra_size != 0 && !call.readable(event.extra_data, extra_size, XLOG_E4_SYSEVENT_BAD_EXTRA)) return;

  xlog_log_request request = {};
  request.flags = event.options;
  request.eventid.user = event.user;
  memcpy(request.event_name, event.event_name, sizeof request.event_name);
  memcpy(request.target_session, "e4", sizeof "e4");

  Blocks blocks = {{}, call, {XLOG_E4_SYSEVENT_BAD_NODE, XLOG_E4_SYSEVENT_BAD_DATA}};
  if (!blocks.add_variables(event.variables)) return;
  if (extra_size != 0) {
    frame::Owned<uint8_t> extra;
    if (!blocks.take(event.extra_data, kept(extra_size), XLOG_E4_SYSEVENT_BAD_EXTRA, &extra) ||
        !blocks.add(XLOG_EXTRA_DATA_BLOCK_ID, std::move(extra), kept(extra_size)))
      return;
  }
  if (blocks.add_tower(event.user, event.tower)) record(call, &request, &blocks.chain);
}

}  // namespace
}  // namespace plov::log

int32_t xlog_sysevent(const xlog_system_event* event, uint32_t* comprc) {
  plov::frame::Call call("xlog_sysevent", "XLOG   T: -> xlog_sysevent", "XLOG   T: <- xlog_sysevent", comprc);
  plov::log::sysevent(call, event);
  return call.leave();
}

int32_t xlog_e4_sysevent(xlog_e4_system_event* event, uint32_t* comprc) {
  plov::frame::Call call("xlog_e4_sysevent", "XLOG   T: -> xlog_e4_sysevent", "XLOG   T: <- xlog_e4_sysevent", comprc);
  plov::log::e4_sysevent(call, event);
  return call.leave();
}
