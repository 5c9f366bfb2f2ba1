// Making room in a file of 10 MB with 30,000 logs, of which the older half goes, beside copying the file, and beside
// SQLite deleting the same half and giving its space back. Each begins with the full file again.
//
// Room-making traces what it does with each log; what these lines alone cost stands beside it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/log_file.h"
#include "xlog.h"
#include "xtr.h"

namespace {

constexpr unsigned kLogs = 30000, kClasses = 20;
constexpr unsigned kBlock = 10'000'000 / kLogs - 40;

[[noreturn]] void give_up(const char* what) {
  perror(what);
  exit(1);
}

const std::string kDirectory = std::string(getenv("CONSOLE_PATH")) + "data/";
const std::string kLog = kDirectory + "wexolog.log";

// Keeps half of each class.
void configure() {
  std::filesystem::create_directories(kDirectory);
  std::ofstream(std::string(getenv("CONSOLE_PATH")) + "wexoinit.trm") << "4883 x\n4883 x\n4883 x\n1024 x\n64 x\n"
                                                                      << kLogs / kClasses / 2 << " x\n1 x\n";
}

const std::string& full_log() {
  static const std::string bytes = [] {
    test::LogFile file;
    file.header.max_file_size = 4883;
    const std::string data(kBlock - 1, 'd');
    for (unsigned i = 0; i < kLogs; ++i)
      file.add({.eventid = {static_cast<uint8_t>(i % kClasses), 1, 0}, .blocks = {test::stored(0x10, data)}});
    return file.bytes();
  }();
  return bytes;
}

void write_out(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// From open to close, as the recorder does it.
void make_room() {
  uint32_t code;
  xlog_err_interface err = {};
  xlog_file_header header;
  if (xlog_access_sem(XLOG_SEM_LOCK, &code) != 0 || xlog_open_file(&err) != 0 ||
      fread(&header, sizeof header, 1, err.file_handle) != 1 || xlog_compress_file(&header, &err) != 0 ||
      err.error_level != XLOG_LEVEL_NONE || header.file_size > full_log().size() * 3 / 5 || xlog_close_file(&err) != 0)
    give_up("making room");
  xlog_access_sem(XLOG_SEM_UNLOCK, &code);
}

void room(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    write_out(kLog, full_log());
    remove((kDirectory + "wexocom0.log").c_str());
    state.ResumeTiming();
    make_room();
  }
}

// Of a run over such a file: four for each log that goes, two while it is marked and two while the gaps are closed, and
// four for each that stays.
void trace_lines(benchmark::State& state) {
  for (auto _ : state) {
    for (unsigned i = 0; i < kLogs / 2; ++i) {
      xtr_trace("XLOG   D: reading log header DD");
      xtr_trace("XLOG   D: log flags = %x", XLOG_LOG_DELETED);
    }
    for (unsigned i = 0; i < kLogs / 2; ++i) {
      xtr_trace("XLOG   D: reading log header FF, current_read_ptr = %d, file_size = %d", i, i);
      xtr_trace("XLOG   D: Pruning log");
    }
    for (unsigned i = 0; i < kLogs / 2; ++i) {
      xtr_trace("XLOG   D: reading log header FF, current_read_ptr = %d, file_size = %d", i, i);
      xtr_trace("XLOG   D: reading log data, log_offset = %d", i);
      xtr_trace("XLOG   D: writing log header");
      xtr_trace("XLOG   D: writing log data");
    }
  }
}

void copy(benchmark::State& state) {
  write_out(kLog, full_log());
  constexpr size_t kBuffer = 128 << 10;
  alignas(64) static char buffer[kBuffer];  // as the kernel copies fastest
  const std::string target = kDirectory + "copy";
  for (auto _ : state) {
    state.PauseTiming();
    remove(target.c_str());
    state.ResumeTiming();
    const int from = open(kLog.c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (from < 0 || to < 0) give_up(target.c_str());
    for (ssize_t got; (got = read(from, buffer, kBuffer)) > 0;)
      if (write(to, buffer, static_cast<size_t>(got)) != got) give_up(target.c_str());
    close(from);
    close(to);
  }
}

void run(sqlite3* base, const char* statement) {
  if (sqlite3_exec(base, statement, nullptr, nullptr, nullptr) != SQLITE_OK) give_up(statement);
}

sqlite3* open_base(const std::string& path) {
  sqlite3* base = nullptr;
  if (sqlite3_open(path.c_str(), &base) != SQLITE_OK) give_up(path.c_str());
  run(base, "PRAGMA synchronous=OFF");
  return base;
}

void sqlite(benchmark::State& state) {
  const std::string full = kDirectory + "full.sqlite", path = kDirectory + "log.sqlite";
  remove(full.c_str());
  sqlite3* base = open_base(full);
  run(base,
      "CREATE TABLE log(id INTEGER PRIMARY KEY, class INT, type INT, user INT, seconds INT, name TEXT, block BLOB)");
  run(base, "CREATE INDEX by_class ON log(class, seconds)");
  run(base,
      ("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<" + std::to_string(kLogs) +
       ") INSERT INTO log SELECT i, i%20, 1, 0, 1000, 'test event', zeroblob(" + std::to_string(kBlock) + ") FROM n")
          .c_str());
  sqlite3_close(base);
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::copy_file(full, path, std::filesystem::copy_options::overwrite_existing);
    state.ResumeTiming();
    base = open_base(path);
    run(base, ("DELETE FROM log WHERE id<=" + std::to_string(kLogs / 2)).c_str());
    run(base, "VACUUM");
    sqlite3_close(base);
  }
}

BENCHMARK(room)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(trace_lines)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(copy)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(sqlite)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

int main(int argc, char** argv) {
  configure();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
