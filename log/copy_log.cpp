#include "log/copy_log.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include "log/interim.h"
#include "xdfc.h"

namespace plov::log {
namespace {

constexpr uint32_t kReplace = XDFC_DE_CREAT | XDFC_E_REPLACE;

int32_t failed(int error, uint32_t* code) {
  *code = static_cast<uint32_t>(error);
  return 2;
}

int32_t copy_to_interim(const char* source, const char* interim, uint32_t* code) {
  const int error = create_interim(interim);
  if (error != 0) return failed(error, code);
  const ExplicitName from(source), to(interim);
  const int32_t result = xdfc_file_copy(from.text, to.text, kReplace, code);
  if (result != 0) unlink(interim);
  return result;
}

}  // namespace

bool disk_full(uint32_t code) {
  return code == ENOSPC || code == EDQUOT || code == XDFC_DISK_FULL;
}

int32_t copy_log(const char* source, const char* target, uint32_t* code) {
  struct stat from, to;
  if (stat(source, &from) != 0) return failed(errno, code);
  const bool replaces = lstat(target, &to) == 0;
  if (replaces && from.st_ino == to.st_ino && from.st_dev == to.st_dev) return failed(XDFC_EXISTS, code);

  const Interim interim(target, ".init");
  int32_t result = copy_to_interim(source, interim.path, code);
  if (result != 0 && replaces && S_ISREG(to.st_mode) && disk_full(*code)) {
    // The older copy has the room that is missing.
    unlink(target);
    result = copy_to_interim(source, interim.path, code);
  }
  if (result == 0 && rename(interim.path, target) != 0) {
    result = failed(errno, code);
    unlink(interim.path);
  }
  return result;
}

}  // namespace plov::log
