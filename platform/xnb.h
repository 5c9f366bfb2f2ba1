/*
 * Native bridge of the console platform: objects, strings, arrays and method calls of the Java side. Supplied by
 * libplovbridge.so, or by the console's own.
 *
 * Every call yields a status, 0 for success; the calls whose name ends in "I" yield it through xnbSaveStatus (below),
 * which any other call's result may pass through too. Other statuses are handed on by callers as their reason code.
 *
 * Which VM: the one that the process holds, whoever started it. In a process without one, the first call starts it when
 * the environment variable PLOV_JVM names the VM's library (libjvm.so); PLOV_CLASSPATH is its class path. It leaves the
 * process's signal actions for HUP, INT, TERM and QUIT alone. Without a VM, after its end, and in a child forked from a
 * process that holds one, every call yields XNB_NO_VM.
 *
 * Threads: any thread may call; the bridge attaches it, as a daemon thread, until its end. Never call while holding a
 * lock of the log or `xtr_mutex_sem`, nor in a signal handler: the VM takes faults of its own. Java code runs on the
 * caller's thread and takes as long as it takes. A Java exception that was pending when Java called into native code
 * stays pending; none is ever left behind by a call.
 *
 * Class names have dots ("com.zanth.vemra.fw.log.Log"), nested classes a "$". A signature names the argument types one
 * after the other, at most 32, "" for none: "Z" boolean, "B" byte, "C" char, "S" short, "I" int, "J" long, "F" float,
 * "D" double, "Lclass;" an object, "[" before a type an array of it. The arguments follow as C passes them: Z, B, C, S
 * and I as int (its low bits count), J as int64_t, F and D as double, objects as xnb_object. NULL is null. A method or
 * constructor needs exactly these argument types, whatever its access. A string made under a name
 * (xnbCreateNamedStringFromUTF8) is passed, on the thread that made it, as that name's text in the place of an object.
 *
 * Text is UTF-8, real one: a zero byte is U+0000, four bytes beyond U+FFFF. What is no UTF-8, and what Java has of lone
 * surrogates, becomes U+FFFD.
 */
#ifndef XNB_H
#define XNB_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

#define XNB_OK 0x0000
#define XNB_NO_VM 0xA001         /* no Java VM in this process, or the thread could not be attached */
#define XNB_NO_CLASS 0xA002      /* no such class, or its initialisation failed */
#define XNB_NO_METHOD 0xA003     /* no such method or constructor of these argument types and this kind of result */
#define XNB_EXCEPTION 0xA004     /* Java threw */
#define XNB_NO_MEMORY 0xA005     /* native memory or Java references are used up */
#define XNB_BAD_ARGUMENT 0xA006  /* NULL where a place is needed, a length above Java's, a signature that is none */
#define XNB_BAD_REFERENCE 0xA007 /* no living reference, null where an object is needed, or one of another class */

typedef void* xnb_object;                  /* a reference; valid on every thread until it is released */
typedef struct xnb_request* xnb_request_t; /* a call that Java made into native code */

/*
 * The status of an "I" call: hand its result to xnbSaveStatus. When that returns non-zero there is more to fetch:
 * xnbGetAllocaLen gives a size, and a buffer of that size, length and address a multiple of 16, goes to
 * xnbUnloadAlloca, which yields the status. Otherwise xnbGetLastStatus yields it. All four speak of the calling thread,
 * and need no VM. The host's bridge has never more to fetch: its xnbSaveStatus returns 0, and its xnbUnloadAlloca
 * writes nothing and yields what xnbGetLastStatus yields.
 */
PLOV_API int32_t xnbSaveStatus(int32_t result);
PLOV_API uint32_t xnbGetAllocaLen(void);
PLOV_API int32_t xnbUnloadAlloca(void* buffer);
PLOV_API int32_t xnbGetLastStatus(void);

/*
 * What was wrong with the thread's last call, in one line of at most 1,023 bytes: of an exception its class and
 * message. "" when the call worked; never NULL; valid until the thread's next call. The status calls above do not touch
 * it, nor does a release that works: references may be given back first.
 */
PLOV_API const char* xnbGetLastErrorMessage(void);

/* Strings. `length` counts bytes, without a NUL at the end. */
PLOV_API int32_t xnbCreateStringFromUTF8(const char* text, uint32_t length, xnb_object* string);
/*
 * A string that has a name of at most 63 bytes instead of a reference. It is the thread's, until the thread gives the
 * name another text, releases it by xnbReleaseObjectReference(name), or ends.
 */
PLOV_API int32_t xnbCreateNamedStringFromUTF8(const char* name, const char* text, uint32_t length);
/* `*text` is NUL-terminated, `*length` counts without the NUL; released by xnbReleaseString. */
PLOV_API int32_t xnbGetStringAsUTF8(xnb_object string, char** text, uint32_t* length);
PLOV_API int32_t xnbReleaseString(char* text); /* NULL, and no VM, are allowed */

/* Arrays. `type` is a signature of one type: "B" makes a byte array, "Ljava.lang.String;" one of null strings. */
PLOV_API int32_t xnbCreateArrayI(const char* type, uint32_t length, xnb_object* array);
PLOV_API int32_t xnbGetArrayLength(xnb_object array, uint32_t* length);
/* A range that leaves the array is an exception, and nothing is copied. `bytes` may be NULL when `count` is 0. */
PLOV_API int32_t xnbGetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, void* bytes);
PLOV_API int32_t xnbSetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, const void* bytes);

/*
 * Objects and methods. A failed call leaves NULL in `*object` and in an object's `*result`, and an int's `*result` as
 * it was. The "Object" calls take methods that give any kind of object or array; a null result is a success with NULL.
 */
PLOV_API int32_t xnbInstantiateObjectI(const char* class_name, const char* signature, xnb_object* object, ...);
PLOV_API int32_t xnbReleaseObjectReference(xnb_object object); /* NULL, and no VM with NULL, are allowed */
PLOV_API int32_t xnbCallVoidMethod(const char* method, const char* signature, xnb_object object, ...);
PLOV_API int32_t xnbCallObjectMethodI(const char* method, const char* signature, xnb_object object, xnb_object* result,
                                      ...);
PLOV_API int32_t xnbCallStaticVoidMethod(const char* class_name, const char* method, const char* signature, ...);
PLOV_API int32_t xnbCallStaticIntMethod(const char* class_name, const char* method, const char* signature,
                                        int32_t* result, ...);
PLOV_API int32_t xnbCallStaticObjectMethodI(const char* class_name, const char* method, const char* signature,
                                            xnb_object* result, ...);

/*
 * A call that Java made: com.zanth.vemra.fw.xnb.NativeFunction.call(name, arguments...) finds the exported function
 * `name`, int32_t name(xnb_request_t), of the libraries loaded with the bridge, and runs it on Java's thread. The
 * request is valid on that thread until the function returns. A function that returns 0 and has reported no failure
 * gives its int result to Java (0 when it has set none); else Java gets a NativeFunctionException that carries the
 * error message, both return codes and the int result. The function's own result counts only as a failure of the
 * bridge: it is what the last call below gave.
 */
/* Arguments count from 0. `*object` is a reference to be released, or NULL for null. */
PLOV_API int32_t xnbGetObjectArgument(xnb_request_t request, uint32_t index, xnb_object* object);
PLOV_API int32_t xnbSetIntResult(xnb_request_t request, int32_t value);
/* Reports a failure; `message` is copied, at most 1,023 bytes of it. */
PLOV_API int32_t xnbSetNativeFunctionError(xnb_request_t request, const char* message);
/* Reports a failure too, unless both are 0. */
PLOV_API int32_t xnbSetReturnCodes(xnb_request_t request, int32_t sysrc, uint32_t comprc);

PLOV_END_DECLS

#endif
