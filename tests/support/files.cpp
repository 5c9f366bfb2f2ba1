#include "support/files.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <random>

namespace test {

std::string console_path() {
  return getenv("CONSOLE_PATH");
}

std::string data_path(const std::string& name) {
  return console_path() + "data/" + name;
}

void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

bool exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

std::string noise(size_t size) {
  std::mt19937 random(5);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

unsigned mode_of(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

}  // namespace test
