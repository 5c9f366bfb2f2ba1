// Data and permanent files of the map of system values, made byte by byte without the library.
#ifndef PLOV_TESTS_MAP_FILE_H
#define PLOV_TESTS_MAP_FILE_H

#include <stdint.h>

#include <string>

namespace test {

struct MapFile {
  std::string records, permanent = "pp";  // the permanent file with its two bytes
  int highest = 0;
  unsigned data_size = 0;

  // `type` is the type byte; a value that stands in a file has as many bytes as the field.
  MapFile& add(int id, unsigned type, const std::string& value, int size = -1);
  std::string data() const;

  // As "<stem>sim.dat" and "<stem>spr.dat" where the shipped path table looks.
  void install(const char* stem = "ywkz") const;
};

inline constexpr unsigned kZero = 0, kData = 1, kPermanent = 2, kPersistent = 2 | 8;

std::string config_path(const std::string& name);

// The value of a field as xsim_read gives it; "?" and the code when it does not.
std::string field(uint32_t id, size_t size);

}  // namespace test

#endif
