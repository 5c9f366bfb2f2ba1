/* Functions that Java calls by name: part of the test program, and preloaded into a process that Java started. */
#include "xnb.h"

/* The length of a byte array, which must be the first of two arguments; 3 is reported as a failure. */
PLOV_API int32_t bridge_test_length(xnb_request_t request) {
  xnb_object bytes, null, missing;
  uint32_t length = 0;
  const int32_t status = xnbGetObjectArgument(request, 0, &bytes);
  if (status != XNB_OK) return status;
  xnbGetArrayLength(bytes, &length);
  xnbReleaseObjectReference(bytes);
  if (xnbGetObjectArgument(request, 1, &null) != XNB_OK || null) return xnbSetIntResult(request, -1);
  if (xnbGetObjectArgument(request, 2, &missing) != XNB_BAD_ARGUMENT) return xnbSetIntResult(request, -2);
  if (length == 3) {
    xnbSetNativeFunctionError(request,
                              "Gr\xC3\xB6\xC3\x9F"
                              "e 3");
    xnbSetReturnCodes(request, 8, 0x4901);
  }
  return xnbSetIntResult(request, (int32_t)length);
}

/* Fails without a report. */
PLOV_API int32_t bridge_test_fails(xnb_request_t request) {
  xnb_object object;
  return xnbGetObjectArgument(request, 77, &object);
}
