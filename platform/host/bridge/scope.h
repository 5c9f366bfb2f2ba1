// One call of the bridge: the thread attached, the last message cleared, a frame for local references, and a Java
// exception that was pending put aside. All is as before when it ends.
#ifndef PLOV_BRIDGE_SCOPE_H
#define PLOV_BRIDGE_SCOPE_H

#include <jni.h>

#include "platform/host/bridge/failure.h"
#include "xnb.h"

namespace plov::bridge {

class Scope {
 public:
  enum class Message { clear, keep };
  explicit Scope(Message message = Message::clear);
  ~Scope();
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

  int32_t status() const { return status_; }  // 0, or there is no environment
  JNIEnv* env() const { return env_; }

  // The object behind a caller's reference, or of a named string. Null is an object only for find().
  int32_t find(xnb_object reference, jobject* object) const;
  int32_t need(xnb_object reference, jobject* object) const;
  int32_t need(xnb_object reference, const char* class_name, jobject* object) const;

  // A reference of the caller's to `object`, null for null.
  int32_t hand_out(jobject object, xnb_object* reference) const;

  int32_t find_class(const char* slashed_name, jclass* found) const;
  int32_t make_string(const char* text, size_t length, jstring* string) const;

 private:
  JNIEnv* env_ = nullptr;
  jthrowable pending_ = nullptr;
  int32_t status_;
  bool framed_ = false;
};

}  // namespace plov::bridge

#endif
