#include "log/stream.h"

namespace plov::log {
namespace {

constexpr Transfer kDone = {true, false, 0};
constexpr uint32_t kStreamReport = 1;  // what ferror() says of a stream in error

Transfer failed(FILE* stream, size_t done) {
  const int report = ferror(stream);
  return report != 0 ? Transfer{false, true, static_cast<uint32_t>(report)}
                     : Transfer{false, false, static_cast<uint32_t>(done)};
}

// An offset of a log file has 32 bits; `long` has no more on the console's ABI.
bool seek(FILE* stream, uint32_t offset) {
  return fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0;
}

}  // namespace

Transfer write_here(FILE* stream, const void* bytes, uint32_t size) {
  clearerr(stream);
  const size_t done = fwrite(bytes, 1, size, stream);
  return done == size ? kDone : failed(stream, done);
}

Transfer write_at(FILE* stream, uint32_t offset, const void* bytes, uint32_t size) {
  clearerr(stream);
  if (!seek(stream, offset)) return {false, true, kStreamReport};
  return write_here(stream, bytes, size);
}

Transfer flush(FILE* stream) {
  clearerr(stream);
  return fflush(stream) == 0 ? kDone : Transfer{false, true, kStreamReport};
}

Transfer read_at(FILE* stream, uint32_t offset, void* bytes, uint32_t size) {
  clearerr(stream);
  if (!seek(stream, offset)) return {false, true, kStreamReport};
  const size_t done = fread(bytes, 1, size, stream);
  return done == size ? kDone : failed(stream, done);
}

}  // namespace plov::log
