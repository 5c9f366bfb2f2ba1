// Arbitrary bytes as a log file under `plovctl check` and `plovctl dump`'s layout: nothing is read outside, complaints
// are bounded and lie in the file, and of a file that is found clean a plain walk along its links says the same.
#include "expand.h"
#include "format_check.h"
#include "fuzz/support.h"

namespace {

using namespace plov::ctl;

// The chains as any reader follows them, from their beginnings to 0.
void walk_clean_file(Bytes file, const CheckResult& result) {
  const xlog_file_header header = *load_file_header(file);
  uint32_t logs = 0;
  for (uint32_t at = header.last_log_offset, previous; at != 0; at = previous, ++logs) {
    const LoadedLog log = load_log(file, at, header.file_size);
    require(log.flaw == Flaw::none);
    previous = log.info.prev_log_offset;
    require(previous < at);
  }
  require(logs == result.logs);
  for (int c = 0; c < 256; ++c)
    for (uint32_t at = header.class_last_log[c], previous; at != 0; at = previous, --logs) {
      const LoadedLog log = load_log(file, at, header.file_size);
      require(log.flaw == Flaw::none && log.info.eventid.classes == c);
      previous = log.info.prev_class_log_offset;
      require(previous < at);
    }
  require(logs == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto bytes = exact(data, size);
  const Bytes file(bytes.get(), size);
  const CheckResult result = check_format(file, expanded_length);
  uint64_t damage = 0, offset = 0;
  require(result.findings.size() <= kMaxFindings);
  for (const Finding& finding : result.findings) {
    damage += !finding.note;
    require(finding.offset >= offset && finding.offset <= size);
    offset = finding.offset;
    require(!to_text(finding).empty());
  }
  require(damage <= result.damage_count && (damage > 0) == (result.damage_count > 0));
  if (result.clean()) walk_clean_file(file, result);
  return 0;
}
