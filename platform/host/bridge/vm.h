// The process's Java VM: finding it, or starting it when the environment says so.
#ifndef PLOV_BRIDGE_VM_H
#define PLOV_BRIDGE_VM_H

#include <jni.h>
#include <stdint.h>

namespace plov::bridge {

// The VM that lives in this process, null when there is none.
JavaVM* find_vm();

// The same, starting it if PLOV_JVM asks for it; the status says why there is none.
int32_t find_or_start_vm(JavaVM** vm);

// The environment of the calling thread, attached until its end if it was not.
int32_t attach_thread(JNIEnv** env);

}  // namespace plov::bridge

#endif
