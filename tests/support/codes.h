// Both codes of an exported call as one value: EXPECT_EQ(codes(xdfc_delete_file, "!f"), Codes(2, ENOENT)).
#ifndef PLOV_TESTS_CODES_H
#define PLOV_TESTS_CODES_H

#include <stdint.h>

#include <utility>

namespace test {

using Codes = std::pair<int32_t, uint32_t>;  // sysrc, comprc

// Calls a function whose last argument is `comprc`.
template <class Function, class... Arguments>
Codes codes(Function function, Arguments... arguments) {
  uint32_t comprc = 0xDEAD;
  const int32_t sysrc = function(arguments..., &comprc);
  return {sysrc, comprc};
}

}  // namespace test

#endif
