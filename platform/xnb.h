/*
 * Native bridge of the console platform: objects, strings, arrays and method calls of the Java side. Supplied by
 * libplovbridge.so, or by the console's own.
 *
 * Every call yields a status, 0 for success, as its result; the calls whose name ends in "I" yield it through
 * xnbSaveStatus (below). A Java exception gives a non-zero status and the last error message. In a process without a
 * Java VM every call has one and the same non-zero status. Any thread may call; the bridge attaches it. Never call
 * while holding a lock of the log: the VM takes faults of its own.
 *
 * Class names have dots ("com.zanth.vemra.fw.log.Log"). A signature names the argument types one after the other:
 * "B" byte, "S" short, "I" int, "J" long, "Lclass;" an object, "[B" a byte array. The arguments follow as C passes
 * them: B, S and I as int, J as int64_t, objects as xnb_object. An object made with a name
 * (xnbCreateNamedStringFromUTF8) may be passed as that name's text; NULL is null.
 */
#ifndef XNB_H
#define XNB_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

typedef void* xnb_object;                  /* a reference; the caller releases it */
typedef struct xnb_request* xnb_request_t; /* a call that Java made into native code */

/*
 * The status of an "I" call: hand its result to xnbSaveStatus. When that returns non-zero there is more to fetch:
 * xnbGetAllocaLen gives a size, and a buffer of that size, length and address a multiple of 16, goes to
 * xnbUnloadAlloca, which yields the status. Otherwise xnbGetLastStatus yields it.
 */
PLOV_API int32_t xnbSaveStatus(int32_t result);
PLOV_API uint32_t xnbGetAllocaLen(void);
PLOV_API int32_t xnbUnloadAlloca(void* buffer);
PLOV_API int32_t xnbGetLastStatus(void);

/* The text of the thread's last failure; never NULL; valid until its next call of the bridge. */
PLOV_API const char* xnbGetLastErrorMessage(void);

/* Strings. */
PLOV_API int32_t xnbCreateStringFromUTF8(const char* text, uint32_t length, xnb_object* string);
PLOV_API int32_t xnbCreateNamedStringFromUTF8(const char* name, const char* text, uint32_t length);
/* `*text` is NUL-terminated, `*length` counts without the NUL; released by xnbReleaseString. */
PLOV_API int32_t xnbGetStringAsUTF8(xnb_object string, char** text, uint32_t* length);
PLOV_API int32_t xnbReleaseString(char* text);

/* Arrays. */
PLOV_API int32_t xnbCreateArrayI(const char* type, uint32_t length, xnb_object* array);
PLOV_API int32_t xnbGetArrayLength(xnb_object array, uint32_t* length);
PLOV_API int32_t xnbGetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, void* bytes);
PLOV_API int32_t xnbSetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, const void* bytes);

/* Objects and methods. */
PLOV_API int32_t xnbInstantiateObjectI(const char* class_name, const char* signature, xnb_object* object, ...);
PLOV_API int32_t xnbReleaseObjectReference(xnb_object object);
PLOV_API int32_t xnbCallVoidMethod(const char* method, const char* signature, xnb_object object, ...);
PLOV_API int32_t xnbCallObjectMethodI(const char* method, const char* signature, xnb_object object, xnb_object* result,
                                      ...);
PLOV_API int32_t xnbCallStaticVoidMethod(const char* class_name, const char* method, const char* signature, ...);
PLOV_API int32_t xnbCallStaticIntMethod(const char* class_name, const char* method, const char* signature,
                                        int32_t* result, ...);
PLOV_API int32_t xnbCallStaticObjectMethodI(const char* class_name, const char* method, const char* signature,
                                            xnb_object* result, ...);

/* Inside a call that Java made. */
PLOV_API int32_t xnbGetObjectArgument(xnb_request_t request, uint32_t index, xnb_object* object);
PLOV_API int32_t xnbSetIntResult(xnb_request_t request, int32_t value);
PLOV_API int32_t xnbSetNativeFunctionError(xnb_request_t request, const char* message);
PLOV_API int32_t xnbSetReturnCodes(xnb_request_t request, int32_t sysrc, uint32_t comprc);

PLOV_END_DECLS

#endif
