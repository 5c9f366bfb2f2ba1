// The bare name list of the FTP command NLST.
#include <errno.h>
#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>

#include "files/emul_directory.h"
#include "files/reply.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

uint32_t no_working_directory(int error) {
  xtr_trace("XDFCNLSD:    error %d from getpwd()", error);
  return XDFC_LIST_NO_WORKING_DIRECTORY;
}

// Links are not listed, whatever they lead to. False: a failure.
bool is_regular(frame::Call& call, const char* directory, const struct dirent& entry, bool& regular) {
  regular = entry.d_type == DT_REG;
  if (entry.d_type != DT_UNKNOWN) return true;
  char path[kFullPathSize];
  struct stat status;
  const int length = snprintf(path, sizeof path, "%s/%s", directory, entry.d_name);
  errno = ENAMETOOLONG;
  if (static_cast<size_t>(length) < sizeof path && lstat(path, &status) == 0) {
    regular = S_ISREG(status.st_mode);
    return true;
  }
  xtr_trace("XDFCNLSF:    lstat of [%s] failed, errno = %d", path, errno);
  return call.refuse(XDFC_LIST_STAT_FAILED);
}

bool add_name(frame::Call& call, Reply& reply, char (&name)[sizeof(dirent::d_name)]) {
  const size_t length = strlen(name);
  name[length] = '\n';  // in the place of the NUL
  const uint32_t failure = reply.append({name, length + 1});
  return failure == 0 || call.refuse(failure);
}

void list(frame::Call& call, Reply& reply, const EmulatedDirectory& directory) {
  for (struct dirent* const entry : directory.entries()) {
    // Without a pattern the hidden files are listed, with one only when it says so.
    if (!directory.whole() && fnmatch(directory.file(), entry->d_name, FNM_NOESCAPE | FNM_PERIOD | FNM_CASEFOLD) != 0)
      continue;
    bool regular;
    if (!is_regular(call, directory.path(), *entry, regular)) return;
    if (regular && !add_name(call, reply, entry->d_name)) return;
  }
  if (reply.empty()) call.refuse(XDFC_LIST_NOTHING);
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_emul_ftp_nlst(char** reply, const char* pattern, uint32_t* comprc) {
  plov::frame::Call call("xdfc_emul_ftp_nlst", "XDFCNLST: -> xdfc_emul_ftp_nlst", "XDFCNLST: <- xdfc_emul_ftp_nlst",
                         comprc);
  if (call.text(pattern, XDFC_BAD_ARGUMENT_2) && call.writable(reply, sizeof *reply, XDFC_BAD_ARGUMENT_1))
    *reply = plov::files::emulate(call, pattern, plov::files::no_working_directory, plov::files::list);
  return call.leave();
}
