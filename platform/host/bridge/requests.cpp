// Calls that Java makes into native code: com.zanth.vemra.fw.xnb.NativeFunction.call.
#include <dlfcn.h>
#include <string.h>

#include "platform/host/bridge/scope.h"

using namespace plov::bridge;

// Lives on the stack of the call.
struct xnb_request {
  xnb_request* outer;  // the thread's call that this one was made in
  jobjectArray arguments;
  int32_t result;
  int32_t sysrc;
  uint32_t comprc;
  bool failed;
  char message[kMessageSize];
};

namespace {

using NativeFunction = int32_t (*)(xnb_request_t);

thread_local xnb_request* innermost;

// Whether it is a request of this thread; it is not looked into before that is known.
bool is_request(xnb_request_t request) {
  const xnb_request* known = innermost;
  while (known && known != request) known = known->outer;
  return known != nullptr;
}

int32_t no_request() {
  return fail(XNB_BAD_ARGUMENT, "no request that this thread is working on");
}

void throw_new(JNIEnv* env, const char* class_name, const char* message) {
  if (const jclass thrown = env->FindClass(class_name)) env->ThrowNew(thrown, message);
}

// Looks in the program and all that was loaded with the bridge; then in the library, for Java may have loaded the
// bridge alone or first, and each for itself.
NativeFunction find_function(JNIEnv* env, jstring name) {
  if (!name) {
    throw_new(env, "java/lang/NullPointerException", "function name");
    return nullptr;
  }
  const char* const text = env->GetStringUTFChars(name, nullptr);
  if (!text) return nullptr;
  void* function = dlsym(RTLD_DEFAULT, text);
  if (!function)
    if (void* const library = dlopen("libplovsp1.so", RTLD_LAZY)) function = dlsym(library, text);
  if (!function) throw_new(env, "java/lang/UnsatisfiedLinkError", text);
  env->ReleaseStringUTFChars(name, text);
  return reinterpret_cast<NativeFunction>(function);
}

// Whatever goes wrong here is an exception in its place.
void throw_failure(JNIEnv* env, const xnb_request& request) {
  const Scope scope;
  jstring message = nullptr;
  if (scope.make_string(request.message, strlen(request.message), &message) != XNB_OK) message = nullptr;
  const jclass type = env->FindClass("com/zanth/vemra/fw/xnb/NativeFunctionException");
  const jmethodID make = type ? env->GetMethodID(type, "<init>", "(Ljava/lang/String;III)V") : nullptr;
  const jobject thrown =
      make ? env->NewObject(type, make, message, request.sysrc, static_cast<jint>(request.comprc), request.result)
           : nullptr;
  if (thrown) env->Throw(static_cast<jthrowable>(thrown));
}

}  // namespace

extern "C" JNIEXPORT jint JNICALL Java_com_zanth_vemra_fw_xnb_NativeFunction_call(JNIEnv* env, jclass, jstring name,
                                                                                  jobjectArray arguments) {
  const NativeFunction function = find_function(env, name);
  if (!function) return 0;
  xnb_request request = {innermost, arguments, 0, 0, 0, false, ""};
  innermost = &request;
  const int32_t status = function(&request);
  innermost = request.outer;
  if (request.failed) {
    throw_failure(env, request);
  } else if (status != XNB_OK) {
    copy_message(request.message, xnbGetLastErrorMessage());
    request.comprc = static_cast<uint32_t>(status);
    throw_failure(env, request);
  }
  return request.result;
}

int32_t xnbGetObjectArgument(xnb_request_t request, uint32_t index, xnb_object* object) {
  const Scope scope;
  if (object) *object = nullptr;
  if (scope.status() != XNB_OK) return scope.status();
  if (!is_request(request)) return no_request();
  JNIEnv* const env = scope.env();
  const jsize count = request->arguments ? env->GetArrayLength(request->arguments) : 0;
  if (!object || index >= static_cast<uint32_t>(count))
    return fail(XNB_BAD_ARGUMENT, "no argument %u of %d, or no place for it", index, count);
  const jobject argument = env->GetObjectArrayElement(request->arguments, static_cast<jsize>(index));
  if (const int32_t status = check(env, XNB_EXCEPTION)) return status;
  return scope.hand_out(argument, object);
}

int32_t xnbSetIntResult(xnb_request_t request, int32_t value) {
  const Scope scope;
  if (scope.status() != XNB_OK) return scope.status();
  if (!is_request(request)) return no_request();
  request->result = value;
  return XNB_OK;
}

int32_t xnbSetNativeFunctionError(xnb_request_t request, const char* message) {
  const Scope scope;
  if (scope.status() != XNB_OK) return scope.status();
  if (!is_request(request)) return no_request();
  copy_message(request->message, message ? message : "");
  request->failed = true;
  return XNB_OK;
}

int32_t xnbSetReturnCodes(xnb_request_t request, int32_t sysrc, uint32_t comprc) {
  const Scope scope;
  if (scope.status() != XNB_OK) return scope.status();
  if (!is_request(request)) return no_request();
  request->sysrc = sysrc;
  request->comprc = comprc;
  if (sysrc != 0 || comprc != 0) request->failed = true;
  return XNB_OK;
}
