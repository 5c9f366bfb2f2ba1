// The Java bridge and the system information map, as long as the library may be linked without them: a name that nobody
// defines is null. Goes away when both are there, with the three tests of these names.
#ifndef PLOV_LOG_NOT_LINKED_H
#define PLOV_LOG_NOT_LINKED_H

#include "xnb.h"

#pragma weak xnbCallObjectMethodI
#pragma weak xnbCallStaticVoidMethod
#pragma weak xnbCallVoidMethod
#pragma weak xnbCreateArrayI
#pragma weak xnbCreateNamedStringFromUTF8
#pragma weak xnbGetAllocaLen
#pragma weak xnbGetArrayLength
#pragma weak xnbGetByteArrayElements
#pragma weak xnbGetLastStatus
#pragma weak xnbGetObjectArgument
#pragma weak xnbGetStringAsUTF8
#pragma weak xnbInstantiateObjectI
#pragma weak xnbReleaseObjectReference
#pragma weak xnbReleaseString
#pragma weak xnbSaveStatus
#pragma weak xnbSetByteArrayElements
#pragma weak xnbSetIntResult
#pragma weak xnbSetNativeFunctionError
#pragma weak xnbSetReturnCodes
#pragma weak xnbUnloadAlloca

#if __has_include("xsim.h")
#include "xsim.h"
#else
extern "C" {
uint32_t xsim_size(uint32_t id);
int32_t xsim_read(uint32_t id, void* buffer, uint32_t* comprc);
}
#pragma weak xsim_read
#pragma weak xsim_size
#endif

namespace plov::log {

inline constexpr int32_t kNoBridge = 0xA001;

}  // namespace plov::log

#endif
