// The reason codes of the library: what they mean, who raises them, what to do. Error messages, `explain` and the
// manual speak from this one table.
#ifndef PLOV_CTL_CODES_H
#define PLOV_CTL_CODES_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace plov::ctl {

enum class Family { sysrc, xlog, xp11, xdfc, listing, xsim, xpce, xact, xmis, xbt, xnb, plovpced };

struct Code {
  Family family;
  uint32_t value;
  const char* name;  // of the constant in the public headers, "" when it has none
  const char* raised_by;
  const char* meaning;
  const char* action;
};

std::span<const Code> all_codes();

std::vector<const Code*> find_codes(uint32_t value);  // of every reason-code family, not sysrc
std::vector<const Code*> find_codes(Family family, uint32_t value);
const Code* find_code_by_name(std::string_view name);

const char* family_name(Family family);
// xlog, xp11, xpce, xmis, xbt, xnb and plovpced in hexadecimal, the others in decimal.
std::string notation(Family family, uint32_t value);

// "sysrc 2 (a bad argument or a refused request), comprc 0x1801 (the event is larger than one log may be)". A value
// that the family's table lacks is explained as an errno where it can be one.
std::string explain_result(Family family, int32_t sysrc, uint32_t comprc);

}  // namespace plov::ctl

#endif
