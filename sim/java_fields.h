// Fields that the Java side keeps.
#ifndef PLOV_SIM_JAVA_FIELDS_H
#define PLOV_SIM_JAVA_FIELDS_H

#include <stdint.h>

#include "xsim.h"

namespace plov::sim {

inline bool java_served(uint32_t id) {
  return id >= XSIM_FIRST_JAVA_ID && id <= XSIM_LAST_JAVA_ID;
}

// xsim_talk_2_java without its probes: `comprc` is usable, `buffer` was probed.
int32_t read_from_java(uint16_t id, uint16_t length, void* buffer, uint32_t* comprc);
int32_t write_to_java(uint16_t id, uint16_t length, const uint8_t* bytes, uint32_t* comprc);

}  // namespace plov::sim

#endif
