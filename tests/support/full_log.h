// A main log that has to make room for the next event, and the directory of log files put back between two tries.
#ifndef PLOV_TESTS_FULL_LOG_H
#define PLOV_TESTS_FULL_LOG_H

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "support/files.h"
#include "support/log_file.h"

namespace test {

using Files = std::map<std::string, std::string>;  // bytes by path

inline Files log_files() {
  Files all;
  for (const auto& entry : std::filesystem::directory_iterator(data_path("")))
    if (entry.is_regular_file()) all[entry.path()] = read_file(entry.path());
  return all;
}

inline void put_back(const Files& all) {
  for (const auto& entry : std::filesystem::directory_iterator(data_path(""))) remove(entry.path().c_str());
  for (const auto& [path, bytes] : all) {
    write_file(path, bytes);
    chmod(path.c_str(), 0600);
  }
}

// Two compressed copies; some types have a keep count, some classes a priority.
inline void configure_full_log() {
  write_file(console_path() + "wexoinit.trm",
             "9 x\n9 x\n9 x\n9 x\n0 x\n100 x\n2 x\nC 10\n * 9 1\n 01 3\nC 12\n * 99 2\n");
  mkdir(data_path("").c_str(), 0700);
}

// Of 20,480 bytes at most; with 20,000 there is no room for an event of 600.
inline LogFile log_filled_to(uint32_t size, LogFile::Kind kind = LogFile::kMain) {
  LogFile file(kind);
  file.header.max_file_size = 10;
  for (uint16_t i = 0; file.header.file_size < size; ++i)
    file.add({.eventid = {static_cast<uint8_t>(0x10 + i % 4), static_cast<uint8_t>(i % 2), i},
              .blocks = {stored(0x20, noise(60 + i * 37 % 200))}});
  return file;
}

// Whether making room in this log was broken off where the next opening finishes it.
inline bool half_done(const std::string& path) {
  xlog_file_header header = {};
  const std::string bytes = read_file(path);
  memcpy(&header, bytes.data(), std::min(sizeof header, bytes.size()));
  return header.file_flags & XLOG_FILE_PRUNE_IN_PROGRESS;
}

}  // namespace test

#endif
