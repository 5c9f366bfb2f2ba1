// The console directory that `isolate` made for this case, and whole files as strings.
#ifndef PLOV_TESTS_FILES_H
#define PLOV_TESTS_FILES_H

#include <string>

namespace test {

std::string console_path();                                          // with its trailing "/"
std::string data_path(const std::string& name);                      // where the shipped path table puts log files
void write_file(const std::string& path, const std::string& bytes);  // created or replaced
std::string read_file(const std::string& path);                      // "" when there is none
bool exists(const std::string& path);
std::string noise(size_t size);             // bytes that do not shrink, the same at each call
unsigned mode_of(const std::string& path);  // permission bits

}  // namespace test

#endif
