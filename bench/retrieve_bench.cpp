// Reading back from a log of 30,000 events: all of them, one class in twenty, the newest tenth by time, the newest 100.
// Beside each: a walk through the mapped file that expands the same blocks and keeps nothing (the floor), and SQLite
// with the same events unencoded, one row each, indices on class and time. Reading the file once from end to end, and
// releasing a whole result, are given beside the first.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <sched.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "log/codec/codec.h"
#include "support/log_file.h"
#include "xlog.h"

namespace {

constexpr unsigned kEvents = 30000, kClasses = 20;
constexpr uint32_t kFirstSecond = 1700000000;

struct Query {
  const char* name;
  uint16_t options;
  uint8_t classes;
  uint32_t start;
  uint32_t maximum;
  unsigned expected;
};
constexpr Query kQueries[] = {
    {"all", XLOG_OPT_ALL_CLASSES, 0, 0, 0, kEvents},
    {"class", XLOG_OPT_ANY_EVENTID, 7, 0, 0, kEvents / kClasses},
    {"newest_tenth", XLOG_OPT_ALL_CLASSES, 0, kFirstSecond + kEvents / 10 * 9, 0, kEvents / 10},
    {"newest_100", XLOG_OPT_ALL_CLASSES, 0, 0, 100, 100},
};

// What a component typically records: a line or two of text, a register dump, the standard block, the modify block.
std::vector<std::pair<uint8_t, std::string>> event_blocks(unsigned i) {
  std::string text, dump;
  for (unsigned line = 0; line < 1 + i % 4; ++line)
    text += "ACTWLIS: channel path " + std::to_string(i * 7919 % 256) + " of subsystem " + std::to_string(i % 4) +
            " went offline, operation " + std::to_string(i * 31 + line) + " was not completed (reason 0x00" +
            std::to_string(i % 97) + ")\n";
  uint32_t state = i * 2654435761u + 1;
  for (unsigned word = 0; word < 48; ++word) {
    state = state * 1664525 + 1013904223;
    const uint32_t value = word % 3 == 0 ? 0 : word % 3 == 1 ? 0xC0000000u + state % 65536 : state;
    dump.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  xlog_standard_block standard = {};
  standard.version = 2;
  strncpy(standard.process.process_name, i % 3 ? "hwmcaprcs" : "actzzdaemon", XLOG_PROCESS_NAME_SIZE - 1);
  standard.process.process_id = 2000 + i % 17;
  standard.process.thread_id = 2000 + i % 117;
  return {{0x10, text},
          {0x20, dump},
          {XLOG_STANDARD_BLOCK_ID, std::string(reinterpret_cast<const char*>(&standard), sizeof standard)},
          {XLOG_MODIFY_BLOCK_ID, std::string(64, '\0')}};
}

test::Block as_recorded(uint8_t id, const std::string& data) {
  if (id == XLOG_MODIFY_BLOCK_ID) return test::raw(id, data);
  std::string output(data.size() * 2 + 64, '\0');
  xlog_mem_block call = {data.data(), static_cast<uint32_t>(data.size()), output.data(),
                         static_cast<uint32_t>(output.size())};
  if (plov::codec::encode(call) != 0 || call.output_length >= data.size()) return test::stored(id, data);
  return test::raw(id, output.substr(0, call.output_length));
}

// The log file and the data base, made once and removed at the end. In an IPC name space of its own, so that a running
// system's log lock is left alone.
class Files {
 public:
  Files() {
    if (unshare(CLONE_NEWIPC) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) abort();
    if (!mkdtemp(directory_)) abort();
    test::LogFile file(test::LogFile::kE4);
    for (unsigned i = 0; i < kEvents; ++i) {
      test::Log log = {.eventid = {static_cast<uint8_t>(i % kClasses), 1, static_cast<uint16_t>(i)},
                       .timestamp = {kFirstSecond + i, 0},
                       .name = "event"};
      log.blocks.push_back(test::stored(XLOG_UTCOFFSET_BLOCK_ID, std::string(4, '\0')));
      for (const auto& [id, data] : event_blocks(i)) log.blocks.push_back(as_recorded(id, data));
      file.add(log);
    }
    std::ofstream(log(), std::ios::binary) << file.bytes();
  }
  ~Files() {
    unlink(log().c_str());
    unlink(data_base().c_str());
    rmdir(directory_);
  }

  std::string log() const { return std::string(directory_) + "/bench.log"; }
  std::string data_base() const { return std::string(directory_) + "/bench.db"; }

 private:
  char directory_[32] = "/tmp/retrieve-bench-XXXXXX";
};

const Files& files() {
  static const Files made;
  return made;
}

void fail(benchmark::State& state, const char* why) {
  state.SkipWithError(why);
}

// ---- the library ----------------------------------------------------------------------------------------------------

xlog_retrieve_block* request(const Query& query) {
  static xlog_retrieve_block block;
  memset(&block, 0, sizeof block);
  block.options = query.options;
  block.eventid.classes = query.classes;
  block.start.seconds = query.start;
  block.maximum = query.maximum;
  snprintf(block.target_session, sizeof block.target_session, "!%s", files().log().c_str());
  return &block;
}

// The C library puts off joining small freed blocks until somebody wants a large one: work of the release, which must
// not be counted to whoever comes next.
void settle() {
  void* volatile large = malloc(1 << 16);
  free(large);
}

void retrieve(benchmark::State& state, const Query& query) {
  xlog_retrieve_block* block = request(query);
  uint32_t comprc;
  for (auto _ : state) {
    if (xlog_retrieve(block, &comprc) != 0 || block->count != query.expected) return fail(state, "retrieve");
    state.PauseTiming();
    xlog_free(block, &comprc);
    settle();
    state.ResumeTiming();
  }
}

void release(benchmark::State& state, const Query& query) {
  xlog_retrieve_block* block = request(query);
  uint32_t comprc;
  for (auto _ : state) {
    state.PauseTiming();
    if (xlog_retrieve(block, &comprc) != 0) return fail(state, "retrieve");
    state.ResumeTiming();
    if (xlog_free(block, &comprc) != 0) return fail(state, "free");
    settle();
  }
}

// ---- the floors -----------------------------------------------------------------------------------------------------

void sequential_read(benchmark::State& state, const Query&) {
  std::vector<char> buffer(65536);
  for (auto _ : state) {
    const int fd = open(files().log().c_str(), O_RDONLY | O_CLOEXEC);
    while (read(fd, buffer.data(), buffer.size()) > 0) benchmark::DoNotOptimize(buffer.data());
    close(fd);
  }
}

class Mapping {
 public:
  Mapping() {
    const int fd = open(files().log().c_str(), O_RDONLY | O_CLOEXEC);
    size_ = static_cast<size_t>(lseek(fd, 0, SEEK_END));
    void* area = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd, 0);
    close(fd);
    if (area == MAP_FAILED) abort();
    bytes_ = static_cast<const uint8_t*>(area);
  }
  ~Mapping() { munmap(const_cast<uint8_t*>(bytes_), size_); }

  template <class T>
  T at(size_t offset) const {
    T value;
    memcpy(&value, bytes_ + offset, sizeof value);
    return value;
  }
  const uint8_t* bytes() const { return bytes_; }

 private:
  const uint8_t* bytes_;
  size_t size_;
};

unsigned mapped_walk(const Query& query, plov::codec::Decoder& decoder, uint8_t* output) {
  const Mapping file;
  const auto header = file.at<xlog_file_header>(0);
  const bool all = query.options & XLOG_OPT_ALL_CLASSES;
  unsigned count = 0;
  for (uint32_t offset = all ? header.last_log_offset : header.class_last_log[query.classes]; offset != 0;) {
    const auto info = file.at<xlog_log_info>(offset);
    if (info.timestamp.seconds < query.start) break;
    size_t position = offset + sizeof info + info.num_blocks * sizeof(xlog_block_info);
    for (unsigned i = 0; i < info.num_blocks; ++i) {
      const auto entry = file.at<xlog_block_info>(offset + sizeof info + i * sizeof(xlog_block_info));
      if (entry.block_id != XLOG_MODIFY_BLOCK_ID) {
        xlog_mem_block call = {file.bytes() + position, entry.block_size, output, 0x1FE00};
        uint32_t code;
        decoder.decode(call, &code);
        benchmark::DoNotOptimize(output);
      }
      position += entry.block_size;
    }
    if (++count == query.maximum) break;
    offset = all ? info.prev_log_offset : info.prev_class_log_offset;
  }
  return count;
}

void mapped(benchmark::State& state, const Query& query) {
  std::vector<uint8_t> output(0x1FE00);
  for (auto _ : state) {
    plov::codec::Decoder decoder;
    if (mapped_walk(query, decoder, output.data()) != query.expected) return fail(state, "walk");
  }
}

// ---- SQLite ---------------------------------------------------------------------------------------------------------

void run(sqlite3* base, const char* statement) {
  if (sqlite3_exec(base, statement, nullptr, nullptr, nullptr) != SQLITE_OK) abort();
}

void fill_data_base(sqlite3* base) {
  run(base,
      "create table event (number integer primary key, class integer, type integer, user integer,"
      " seconds integer, hundredths integer, name text, flags integer, blocks blob); begin");
  sqlite3_stmt* insert;
  sqlite3_prepare_v2(base, "insert into event values (?, ?, 1, ?, ?, 0, 'event', 0, ?)", -1, &insert, nullptr);
  for (unsigned i = 0; i < kEvents; ++i) {
    std::string blob;
    for (const auto& [id, data] : event_blocks(i)) blob += static_cast<char>(id) + std::to_string(data.size()) + data;
    sqlite3_bind_int(insert, 1, static_cast<int>(i));
    sqlite3_bind_int(insert, 2, static_cast<int>(i % kClasses));
    sqlite3_bind_int(insert, 3, static_cast<int>(i));
    sqlite3_bind_int64(insert, 4, kFirstSecond + i);
    sqlite3_bind_blob(insert, 5, blob.data(), static_cast<int>(blob.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(insert) != SQLITE_DONE) abort();
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  run(base, "commit; create index by_class on event (class, number); create index by_time on event (seconds)");
}

// Opened for each query, as the log is; each value of a row is looked at and the blocks are copied out.
void sqlite(benchmark::State& state, const Query& query) {
  sqlite3* base;
  static const bool filled = [&] {
    sqlite3_open(files().data_base().c_str(), &base);
    fill_data_base(base);
    return sqlite3_close(base) == SQLITE_OK;
  }();
  if (!filled) abort();
  std::string text = "select * from event";
  if (!(query.options & XLOG_OPT_ALL_CLASSES)) text += " where class = " + std::to_string(query.classes);
  if (query.start) text += " where seconds >= " + std::to_string(query.start) + " order by seconds desc";
  if (!query.start) text += " order by number desc";
  if (query.maximum) text += " limit " + std::to_string(query.maximum);
  std::vector<std::string> rows;
  for (auto _ : state) {
    state.PauseTiming();
    rows.clear();
    settle();
    state.ResumeTiming();
    if (sqlite3_open_v2(files().data_base().c_str(), &base, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) abort();
    sqlite3_stmt* select;
    if (sqlite3_prepare_v2(base, text.c_str(), -1, &select, nullptr) != SQLITE_OK) return fail(state, "prepare");
    while (sqlite3_step(select) == SQLITE_ROW) {
      for (int column = 0; column < 8; ++column) benchmark::DoNotOptimize(sqlite3_column_int64(select, column));
      rows.emplace_back(static_cast<const char*>(sqlite3_column_blob(select, 8)),
                        static_cast<size_t>(sqlite3_column_bytes(select, 8)));
    }
    sqlite3_finalize(select);
    sqlite3_close(base);
    if (rows.size() != query.expected) return fail(state, "select");
  }
}

void add(const char* what, const Query& query, void (*run)(benchmark::State&, const Query&)) {
  benchmark::RegisterBenchmark((std::string(query.name) + '/' + what).c_str(), [run, &query](benchmark::State& state) {
    run(state, query);
  })->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
  // A warm heap for everybody: pages that the C library gives back to the kernel and fetches again depend on what
  // happens to lie at the heap's end.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 1 << 24);
  for (const Query& query : kQueries) {
    add("retrieve", query, retrieve);
    add("mapped_walk", query, mapped);
    add("sqlite", query, sqlite);
  }
  add("sequential_read", kQueries[0], sequential_read);
  add("release", kQueries[0], release);
  benchmark::Initialize(&argc, argv);
  files();
  benchmark::RunSpecifiedBenchmarks();
}
