// What every user of the Java bridge needs besides its calls.
#ifndef PLOV_FRAME_BRIDGE_H
#define PLOV_FRAME_BRIDGE_H

#include <stdint.h>

#include "xnb.h"

namespace plov::frame {

// The status of a bridge call whose name ends in "I". ENOMEM when there is no room for what the bridge has left to
// fetch.
int32_t bridge_status(int32_t result);

// A reference into the Java side, released whatever happens.
struct JavaReference {
  JavaReference() = default;
  JavaReference(const JavaReference&) = delete;
  JavaReference& operator=(const JavaReference&) = delete;
  ~JavaReference() {
    if (object) xnbReleaseObjectReference(object);
  }

  xnb_object object = nullptr;
};

}  // namespace plov::frame

#endif
