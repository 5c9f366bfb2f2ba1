#include "copies.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "failure.h"
#include "log_layout.h"
#include "xdfc.h"

namespace plov::ctl {
namespace {

constexpr size_t kLargestFile = 512 << 20;
constexpr int kMaxCopies = 36;

bool is_logcomp(const xlog_log_info& info) {
  return info.eventid.classes == 0 && info.eventid.log_type == 0 && info.eventid.user == 797 &&
         memcmp(info.event_name, "logcomp", sizeof "logcomp") == 0;
}

bool same_log(const xlog_log_info& a, const xlog_log_info& b) {
  return a.total_log_size == b.total_log_size && memcmp(&a.eventid, &b.eventid, sizeof a.eventid) == 0 &&
         memcmp(&a.timestamp, &b.timestamp, sizeof a.timestamp) == 0 &&
         memcmp(a.event_name, b.event_name, sizeof a.event_name) == 0;
}

// Forgets which copies were used.
void reset_copies(xlog_err_interface* err) {
  uint32_t offset;
  int32_t found;
  xlog_file_header header;
  xlog_find_comp_log(nullptr, 0, &offset, 1, &found, &header, err);
}

}  // namespace

CopyWalk::CopyWalk(const LogName& log) {
  memcpy(err_.target_session, log.session.data(), log.session.size());
  const int32_t sysrc = xlog_open_file(&err_);
  if (sysrc != 0) throw CallFailure("xlog_open_file", log.path, Family::xlog, sysrc, err_.error_id);
}

CopyWalk::~CopyWalk() {
  reset_copies(&err_);
  if (err_.file_handle) xlog_close_file(&err_);
}

std::vector<uint8_t> CopyWalk::read() const {
  const int file = fileno(err_.file_handle);
  lseek(file, 0, SEEK_SET);
  return read_to_end(file, "log", kLargestFile);
}

bool CopyWalk::enter_copy(Bytes file, uint32_t* reached) {
  const std::optional<xlog_file_header> header = load_file_header(file);
  if (!header || ++switches_ > kMaxCopies) return false;
  const LogLayout layout = lay_out(file, *header);
  for (size_t i = layout.logs.size(); i-- > 1;) {
    if (!is_logcomp(load_log(file, layout.logs[i], layout.end).info)) continue;
    *reached = layout.logs[i - 1];
    if (enter_copy_ending_with(load_log(file, *reached, layout.end).info, *reached)) return true;
  }
  *reached = 0;
  return false;
}

// The library takes a copy whose newest log is as long as the one reached. In a log of equal events that says little,
// so it is looked at here, and the next one is asked for.
bool CopyWalk::enter_copy_ending_with(const xlog_log_info& log, uint32_t offset) {
  reset_copies(&err_);
  for (;;) {
    FILE* const here = fdopen(dup(fileno(err_.file_handle)), "r");
    if (!here) return false;
    uint32_t newest = 0;
    int32_t found = 0;
    xlog_file_header header;
    xlog_find_comp_log(nullptr, offset, &newest, 0, &found, &header, &err_);
    if (found == 0) {
      fclose(here);
      return false;
    }
    xlog_log_info info;
    if (fseek(err_.file_handle, static_cast<long>(newest), SEEK_SET) == 0 &&
        fread(&info, sizeof info, 1, err_.file_handle) == 1 && same_log(info, log)) {
      fclose(here);
      return true;
    }
    fclose(err_.file_handle);
    err_.file_handle = here;
  }
}

}  // namespace plov::ctl
