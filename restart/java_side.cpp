#include "restart/java_side.h"

#include "frame/call.h"
#include "frame/deferred.h"
#include "restart/event.h"
#include "restart/lookup.h"
#include "xbt.h"
#include "xnb.h"

namespace plov::restart {
namespace {

constexpr char kClass[] = "com.zanth.vemra.fw.shutdown.ShutdownManager";
constexpr char kMethod[] = "nativeRestart";
constexpr char kSignature[] = "Ljava.lang.String;Ljava.lang.String;I";

constexpr int32_t kNoJavaSide = -1;

// Message `code` has one line: its number, and for one of them a text.
void report(RestartRecord& record, const char* function, uint32_t code, int32_t value, const char* text = nullptr) {
  fail(record, frame::kSystemFailure, code);
  record.data = static_cast<uint32_t>(value);
  const Line line = lookup_err(record, bt_err_info.count, bt_err_info.table, code, 1, value, text);
  log_event(record, function, line.get(), nullptr, code);
}

// A reference to a Java string, released by release().
class JavaString {
 public:
  bool create_string_from_UTF8(RestartRecord& record, const char* text, uint32_t length) {
    // Under the log's crash guard a fault that the VM takes on purpose would be taken for a crash and end the VM.
    const int32_t rc = !frame::lock_held() ? xnbCreateStringFromUTF8(text, length, &string_) : kNoJavaSide;
    if (rc == 0) return true;
    string_ = nullptr;
    report(record, "create_string_from_UTF8", XBT_NO_STRING, rc);
    return false;
  }
  void release(RestartRecord& record) {
    if (!string_) return;
    const int32_t rc = xnbReleaseObjectReference(string_);
    string_ = nullptr;
    if (rc != 0) report(record, "do_xbt_restart", XBT_NOT_RELEASED, rc);
  }
  xnb_object get() const { return string_; }

 private:
  xnb_object string_ = nullptr;
};

void trace_error_message() {
  restart_trace('F', "                 : Error was: %s", xnbGetLastErrorMessage());
}

bool call(RestartRecord& record, const JavaString& name, const JavaString& message, uint32_t type) {
  restart_trace('F', "   do_xbt_restart: About to call xnbCallStaticIntMethod");
  int32_t method_rc = 0;
  const int32_t rc = xnbCallStaticIntMethod(kClass, kMethod, kSignature, &method_rc, name.get(), message.get(),
                                            static_cast<int32_t>(type));
  if (rc != 0) {
    restart_trace('F', "   do_xbt_restart: xnbCallStaticIntMethod failed with rc = %u", static_cast<uint32_t>(rc));
    trace_error_message();
    report(record, "do_xbt_restart", XBT_CALL_FAILED, rc);
    return false;
  }
  restart_trace('F', "   do_xbt_restart: xnbCallStaticIntMethod worked! method_rc = %u",
                static_cast<uint32_t>(method_rc));
  switch (method_rc) {
    case 0:
      return true;
    case 1:
      fail(record, frame::kRefused, XBT_JAVA_ANSWERED_1);
      return true;
    case 2:
      fail(record, frame::kRefused, XBT_JAVA_ANSWERED_2);
      return true;
    default:
      restart_trace('F', "   do_xbt_restart: xnbCallStaticIntMethod worked, but method_rc = %u",
                    static_cast<uint32_t>(method_rc));
      trace_error_message();
      report(record, "do_xbt_restart", XBT_BAD_ANSWER, method_rc, kMethod);
      return false;
  }
}

}  // namespace

bool ask_java(RestartRecord& record, const Request& request) {
  JavaString name, message;
  const bool answered = name.create_string_from_UTF8(record, request.name, request.name_length) &&
                        message.create_string_from_UTF8(record, request.message, request.message_length) &&
                        call(record, name, message, request.type);
  name.release(record);
  message.release(record);
  return answered;
}

}  // namespace plov::restart
