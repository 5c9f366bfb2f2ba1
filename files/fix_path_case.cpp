// Repairs the case of a path against what is on disk, for names that come from systems without case.
#include <dirent.h>
#include <fnmatch.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "files/full_path.h"
#include "frame/call.h"
#include "frame/memory.h"
#include "frame/probe.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

// A text in a fixed area; what does not fit is left out and remembered.
struct GoodPath {
  char text[kFullPathSize] = "/";
  size_t length = 1;
  bool too_long = false;

  void append(const char* part, const char* end) {
    const int added = snprintf(text + length, sizeof text - length, "%s%s", part, end);
    too_long |= static_cast<size_t>(added) >= sizeof text - length;
    length = too_long ? sizeof text - 1 : length + static_cast<size_t>(added);
  }
};

// Appends every name in `good` that equals `token` but for case, each followed by `end`. Two names that differ in
// nothing else are both appended; the path then leads nowhere, rather than to one of them by chance.
bool repair(GoodPath& good, const char* token, const char* end) {
  xtr_trace("XDFCXRMD:    before scandir, goodpath = %s", good.text);
  struct dirent** entries = nullptr;
  const int num_entries = good.too_long ? -1 : scandir(good.text, &entries, nullptr, alphasort);
  xtr_trace("XDFCXRMD:    after scandir, num_entries = %d", num_entries);
  if (num_entries <= 0) {
    if (num_entries == 0) PLOV_FREE(entries);
    xtr_trace("XDFCXRMD:    scandir failed for path %s.", good.text);
    return false;
  }
  bool found = false;
  for (int i = 0; i < num_entries; ++i) {
    if (fnmatch(token, entries[i]->d_name, FNM_NOESCAPE | FNM_CASEFOLD) == 0) {
      good.append(entries[i]->d_name, end);
      found = true;
    }
    PLOV_FREE(entries[i]);
  }
  PLOV_FREE(entries);
  if (!found) xtr_trace("XDFCXRMD:    token %s not found.", token);
  return found;
}

bool fix_path_case(char* path) {
  char workpath[kFullPathSize + 1];
  snprintf(workpath, sizeof workpath, "%s", path);
  xtr_trace("XDFCXRMD:    workpath = %s", workpath);
  char* const slash = strrchr(workpath, '/');
  const char* const file = slash ? slash + 1 : workpath;

  GoodPath good;
  if (slash) {
    *slash = '\0';
    char* rest = workpath;
    while (const char* component = strsep(&rest, "/"))
      if (component[0] != '\0' && !repair(good, component, "/")) return false;
  }
  if (file[0] != '\0' && !strchr(file, '*') && !repair(good, file, "")) return false;

  // Without the NUL: what was not repaired, a wildcard file part, stays in place behind the repaired part. So the path
  // must hold each "/" once.
  if (!good.too_long && good.length <= strlen(path)) memcpy(path, good.text, good.length);
  return true;
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_fixpathcase(char* path) {
  xtr_trace("XDFCXRMT: -> xdfc_fixpathcase");
  uint32_t length = 0, scratch = 0;
  const bool usable = plov::frame::probe_string(path, &length, &scratch) == 0 &&
                      plov::frame::probe(path, length, plov::frame::Access::write, &scratch) == 0;
  const bool fixed = usable && plov::files::fix_path_case(path);
  xtr_trace("XDFCXRMT: <- xdfc_fixpathcase");
  return fixed ? 0 : static_cast<int32_t>(plov::frame::kRefused);
}
