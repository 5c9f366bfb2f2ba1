// The path table of this process.
#ifndef PLOV_FILES_PATH_TABLE_LOAD_H
#define PLOV_FILES_PATH_TABLE_LOAD_H

#include <stdint.h>

namespace plov::files {

// Fills xdfc_file_req from "ywkddfc.trm" unless that has succeeded before. Result 0, the errno of the failed step, or
// XDFC_TABLE_TOO_LARGE; after a failure the next call tries again.
uint32_t load_path_table();

}  // namespace plov::files

#endif
