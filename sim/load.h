// Attaching the map's header block, and loading the map in the process that made it.
#ifndef PLOV_SIM_LOAD_H
#define PLOV_SIM_LOAD_H

#include <stdint.h>

namespace plov::sim {

// The work of xsim_init. `*comprc` is left alone unless this process loads or something fails.
int32_t init(uint32_t* comprc);

}  // namespace plov::sim

#endif
