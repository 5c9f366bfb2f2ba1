#include "support/map_file.h"

#include <algorithm>

#include "support/files.h"
#include "xsim.h"

namespace test {
namespace {

std::string word(int value) {
  return {static_cast<char>(value), static_cast<char>(value >> 8)};
}

}  // namespace

MapFile& MapFile::add(int id, unsigned type, const std::string& value, int size) {
  if (size < 0) size = static_cast<int>(value.size());
  records += word(id) + word(size) + static_cast<char>(type);
  if ((type & 7) == kData) records += value;
  if ((type & 7) == kPermanent) permanent += "PPPP" + value;
  highest = std::max(highest, id);
  data_size += static_cast<unsigned>(size);
  return *this;
}

std::string MapFile::data() const {
  return "--" + word(highest) + word(static_cast<int>(data_size)) + records;
}

void MapFile::install(const char* stem) const {
  write_file(config_path(stem + std::string("sim.dat")), data());
  write_file(config_path(stem + std::string("spr.dat")), permanent);
}

std::string config_path(const std::string& name) {
  return console_path() + "config/" + name;
}

std::string field(uint32_t id, size_t size) {
  std::string value(size, '.');
  uint32_t comprc = 0xDEAD;
  return xsim_read(id, value.data(), &comprc) == 0 ? value : "?" + std::to_string(comprc);
}

}  // namespace test
