// One record, its required sleep taken out, beside everything that it is told to do done bare, and beside an insert
// into SQLite.
//
// The bare work is what one record of the library was seen to do (its trace lines are read back from the trace, its
// probes are counted), with nothing around it: the semaphore and signal calls of the log lock, the crash guard and each
// probe, the trace lines, the look at the command line, the two buffers, the encoder, and the calls of one buffered
// stream. What the library does beyond that counts against it: its checks, its return codes, formatting the trace
// lines, and copying from and to its caller under a guard, where the bare work just copies.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdio.h>
#include <string.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "log/codec/codec.h"
#include "plovmemdebug.h"
#include "xlog.h"
#include "xtr.h"

namespace {

bool counting;
unsigned unblocked;

[[noreturn]] void give_up(const char* what) {
  perror(what);
  exit(1);
}

}  // namespace

extern "C" {

// The pacing sleep is not what is measured.
int clock_nanosleep(clockid_t, int, const struct timespec*, struct timespec*) {
  return 0;
}

// Each probe and each guarded copy lets SIGSEGV through once.
int pthread_sigmask(int how, const sigset_t* set, sigset_t* old_set) {
  static const auto real = reinterpret_cast<decltype(&pthread_sigmask)>(dlsym(RTLD_NEXT, "pthread_sigmask"));
  if (counting && how == SIG_UNBLOCK) ++unblocked;
  return real(how, set, old_set);
}
}

namespace {

// ---- the library ----------------------------------------------------------------------------------------------------

const std::string kText = [] {
  std::ifstream in("/proc/meminfo");
  return std::string(std::istreambuf_iterator<char>(in), {}).substr(0, 1000);
}();

xlog_data_node node = {static_cast<uint32_t>(kText.size()), 0x10, kText.data(), nullptr};

void record() {
  xlog_log_request request = {};
  request.flags = XLOG_STANDARD_LOG_FLAG;
  request.eventid = {0x21, 1, 7};
  memcpy(request.event_name, "bench event ", XLOG_NAME_SIZE);
  request.data = &node;
  uint32_t comprc = 0;
  if (xlog_record(&request, &comprc) != 0) {
    fprintf(stderr, "xlog_record failed, comprc 0x%X\n", comprc);
    exit(1);
  }
}

std::string log_path() {
  return std::string(getenv("CONSOLE_PATH")) + "data/wexolog.log";
}

void new_log() {
  std::filesystem::remove(log_path());
  record();
}

// ---- the same, bare -------------------------------------------------------------------------------------------------

// What one record into an existing log does.
struct Steps {
  unsigned probes;
  std::vector<std::string> lines;
};

// The texts of this thread's trace lines behind the newest one that reads `mark`.
std::vector<std::string> lines_behind(const char* mark) {
  std::string shown(400000, '\0');
  uint32_t size, code;
  if (xtr_fetch_tid(shown.data(), static_cast<uint32_t>(shown.size()), 1, &size, &code) != 0) give_up("xtr_fetch_tid");
  std::vector<std::string> lines;
  for (size_t at = 0, end; (end = shown.find('\n', at)) < size; at = end + 1) {
    // Date, time, ids, then the text.
    size_t text = at;
    for (int blanks = 0; blanks < 3; ++blanks) text = shown.find(' ', text) + 1;
    lines.push_back(shown.substr(text, end - text));
    if (lines.back() == mark) lines.clear();
  }
  return lines;
}

// Of the block's data, and of the time stamp into the request. The library's own care: no part of the bare work.
constexpr unsigned kGuardedCopies = 2;

const Steps& steps() {
  static const Steps seen = [] {
    new_log();
    xtr_trace("record_bench");
    counting = true;
    record();
    counting = false;
    return Steps{unblocked - kGuardedCopies, lines_behind("record_bench")};
  }();
  return seen;
}

class Bare {
 public:
  Bare() : steps_(steps()), path_(log_path()), directory_(path_.substr(0, path_.rfind('/'))) {
    if (semaphore_ < 0) give_up("semget");
    new_log();
  }
  ~Bare() { semctl(semaphore_, 0, IPC_RMID); }

  void record() {
    for (const std::string& line : steps_.lines) xtr_trace("%s", line.c_str());
    for (unsigned i = 0; i < steps_.probes; ++i) probe(i < kStrings ? 1 : 2);
    sembuf take[2] = {{0, 0, 0}, {0, 1, SEM_UNDO}}, give = {0, -1, SEM_UNDO};
    if (semop(semaphore_, take, 2) != 0) give_up("semop");
    struct sigaction guard = {}, before;
    change_action(guard, &before);
    write_log();
    change_action(before, nullptr);
    if (semop(semaphore_, &give, 1) != 0) give_up("semop");
  }

 private:
  // Of the probes, those that read a string: they jump once, the others twice.
  static constexpr unsigned kStrings = 3;

  static void change_action(const struct sigaction& action, struct sigaction* before) {
    pthread_mutex_lock(&xtr_mutex_sem);
    sigaction(SIGSEGV, &action, before);
    pthread_mutex_unlock(&xtr_mutex_sem);
  }

  static void probe(int jumps) {
    struct sigaction action = {}, saved;
    sigset_t set, old_mask;
    sigjmp_buf point;
    action.sa_handler = [](int) {};
    sigemptyset(&set);
    sigaddset(&set, SIGSEGV);
    pthread_mutex_lock(&xtr_mutex_sem);
    pthread_sigmask(SIG_UNBLOCK, &set, &old_mask);
    sigaction(SIGSEGV, &action, &saved);
    if (sigsetjmp(point, 1) != 0 || (jumps > 1 && sigsetjmp(point, 1) != 0)) abort();
    sigaction(SIGSEGV, &saved, nullptr);
    pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
    pthread_mutex_unlock(&xtr_mutex_sem);
  }

  static void read_command_line() {
    char path[32], line[128];
    snprintf(path, sizeof path, "/proc/%d/cmdline", static_cast<int>(getpid()));
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0 || read(file, line, sizeof line - 1) < 0) give_up(path);
    close(file);
  }

  static uint32_t encode(const void* bytes, size_t size, uint8_t* output) {
    xlog_mem_block block = {bytes, static_cast<uint32_t>(size), output, kBufferSize};
    if (plov::codec::encode(block) != 0) abort();
    return block.output_length;
  }

  void write_log() {
    mkdir(directory_.c_str(), 02770);
    FILE* file = access(path_.c_str(), F_OK) == 0 ? fopen(path_.c_str(), "r+") : nullptr;
    if (!file) give_up(path_.c_str());
    fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
    // Twice: the file is checked when it is opened, and read when it is written to.
    xlog_file_header header;
    for (int i = 0; i < 2; ++i)
      if (fseeko(file, 0, SEEK_SET) != 0 || fread(&header, sizeof header, 1, file) != 1) give_up("fread");

    auto* input = static_cast<uint8_t*>(plovmemdebug_malloc(kBufferSize, __FILE__, __LINE__));
    auto* output = static_cast<uint8_t*>(plovmemdebug_malloc(kBufferSize, __FILE__, __LINE__));
    timeval now;
    gettimeofday(&now, nullptr);
    read_command_line();
    xlog_standard_block standard = {};
    standard.process.parent_process_id = static_cast<uint32_t>(getppid());
    struct tm local;
    localtime_r(&now.tv_sec, &local);

    struct PLOV_PACKED {
      xlog_log_info info;
      xlog_block_info blocks[3];
    } log = {};
    xlog_utc_block utc = {};
    const auto offset = static_cast<off_t>(header.file_size);
    fseeko(file, offset, SEEK_SET);
    fwrite(&log, 1, sizeof log, file);
    fwrite(&utc, 1, sizeof utc, file);
    memcpy(input, kText.data(), kText.size());
    const uint32_t stored = encode(input, kText.size(), output);
    fwrite(output, 1, stored, file);
    memcpy(input, &standard, sizeof standard);
    const uint32_t standard_stored = encode(input, sizeof standard, output);
    fwrite(output, 1, standard_stored, file);
    fseeko(file, offset, SEEK_SET);
    fwrite(&log, 1, sizeof log, file);
    fflush(file);
    header.file_size += static_cast<uint32_t>(sizeof log + sizeof utc) + stored + standard_stored;
    fseeko(file, 0, SEEK_SET);
    fwrite(&header, 1, sizeof header, file);
    if (fflush(file) != 0 || fclose(file) != 0) give_up(path_.c_str());
    plovmemdebug_free(output, __FILE__, __LINE__);
    plovmemdebug_free(input, __FILE__, __LINE__);
  }

  static constexpr uint32_t kBufferSize = 0x1FE00;

  const Steps& steps_;
  std::string path_, directory_;
  int semaphore_ = semget(IPC_PRIVATE, 1, 0600);
};

// ---- SQLite ---------------------------------------------------------------------------------------------------------

class Database {
 public:
  explicit Database(const char* name) : path_(log_path() + name) {
    open();
    run("PRAGMA journal_mode=WAL");
    run("CREATE TABLE IF NOT EXISTS log(class INT, type INT, user INT, seconds INT, hundredths INT, name TEXT,"
        " flags INT, block BLOB, standard BLOB)");
    run("CREATE INDEX IF NOT EXISTS by_class ON log(class, seconds)");
  }
  ~Database() { close(); }
  // Nothing is synced, as in the log.
  void open() {
    if (sqlite3_open(path_.c_str(), &base_) != SQLITE_OK) give_up(path_.c_str());
    run("PRAGMA synchronous=OFF");
  }
  void close() {
    sqlite3_finalize(insert_);
    insert_ = nullptr;
    sqlite3_close(base_);
  }
  void insert() {
    if (!insert_ && sqlite3_prepare_v2(base_, "INSERT INTO log VALUES(33,1,7,?,?,'bench event',4,?,?)", -1, &insert_,
                                       nullptr) != SQLITE_OK)
      give_up("prepare");
    timeval now;
    gettimeofday(&now, nullptr);
    const xlog_standard_block standard = {};
    sqlite3_bind_int64(insert_, 1, now.tv_sec);
    sqlite3_bind_int64(insert_, 2, now.tv_usec / 10000);
    sqlite3_bind_blob(insert_, 3, kText.data(), static_cast<int>(kText.size()), SQLITE_STATIC);
    sqlite3_bind_blob(insert_, 4, &standard, sizeof standard, SQLITE_TRANSIENT);
    if (sqlite3_step(insert_) != SQLITE_DONE) give_up("insert");
    sqlite3_reset(insert_);
  }
  void open_insert_close() {
    open();
    insert();
    close();
  }

 private:
  void run(const char* statement) {
    if (sqlite3_exec(base_, statement, nullptr, nullptr, nullptr) != SQLITE_OK) give_up(statement);
  }

  std::string path_;
  sqlite3* base_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

// ---- the cases ------------------------------------------------------------------------------------------------------

void back_to_back(benchmark::State& state, const std::function<void()>& work) {
  for (auto _ : state) work();
}

void back_to_back_record(benchmark::State& state) {
  new_log();
  back_to_back(state, record);
}

void back_to_back_bare(benchmark::State& state) {
  Bare bare;
  back_to_back(state, [&] { bare.record(); });
}

void back_to_back_sqlite_open(benchmark::State& state) {
  Database database(".sqlite1");
  back_to_back(state, [&] { database.insert(); });
}

void back_to_back_sqlite_reopened(benchmark::State& state) {
  Database database(".sqlite2");
  database.close();
  back_to_back(state, [&] { database.open_insert_close(); });
  database.open();
}

// Out of a pause that leaves the caches to others, as a console records. The paths take turns, in changing order, so
// that what the machine does besides meets all of them; a counter has the median of each in ns.
void every_10_ms(benchmark::State& state) {
  Bare bare;
  Database kept_open(".sqlite1"), reopened(".sqlite2");
  reopened.close();
  struct Path {
    const char* name;
    std::function<void()> work;
    std::vector<double> times = {};
  } paths[] = {{"record", record},
               {"bare", [&] { bare.record(); }},
               {"sqlite_open", [&] { kept_open.insert(); }},
               {"sqlite_reopened", [&] { reopened.open_insert_close(); }}};
  std::minstd_rand random;
  for (auto _ : state) {
    std::shuffle(std::begin(paths), std::end(paths), random);
    for (Path& path : paths) {
      usleep(10000);
      const auto start = std::chrono::steady_clock::now();
      path.work();
      path.times.push_back(std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count());
    }
  }
  for (Path& path : paths) {
    const auto middle = path.times.begin() + static_cast<long>(path.times.size() / 2);
    std::nth_element(path.times.begin(), middle, path.times.end());
    state.counters[path.name] = *middle;
  }
  reopened.open();
}

// What a record costs must not grow with the logs that are there already.
void into_a_log_of(benchmark::State& state) {
  new_log();
  for (int64_t i = 1; i < state.range(0); ++i) record();
  for (auto _ : state) record();
}

BENCHMARK(back_to_back_record)->Iterations(3000);
BENCHMARK(back_to_back_bare)->Iterations(3000);
BENCHMARK(back_to_back_sqlite_open)->Iterations(3000);
BENCHMARK(back_to_back_sqlite_reopened)->Iterations(1000);
BENCHMARK(every_10_ms)->Iterations(80);
BENCHMARK(into_a_log_of)->Arg(100)->Arg(25000)->Iterations(2000);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("one record", std::to_string(steps().probes) + " probes, " +
                                                std::to_string(steps().lines.size()) + " trace lines");
  benchmark::RunSpecifiedBenchmarks();
}
