// Listing a directory of 10,000 files beside the bare walk (readdir, stat, one formatted line), and beside "ls -l" and
// "find". Those are programs: their processor time, in the counter "child", is that of the process.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "plovmemdebug.h"
#include "xdfc.h"

namespace {

constexpr int kFiles = 10000;
constexpr uint32_t kNames = 256 << 10;

void make_files() {
  mkdir("files", 0755);
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "files/event_log_" + std::to_string(i * 7919 % kFiles) + ".dat";
    FILE* const file = fopen(name.c_str(), "w");
    fwrite(name.data(), 1, name.size(), file);
    fclose(file);
  }
}

// Visits what the patterns of the library's side match.
template <class Visit>
bool walk(int flags, Visit visit) {
  DIR* const directory = opendir("files");
  int files = 0;
  while (const struct dirent* const entry = readdir(directory)) {
    if (entry->d_name[0] == '.') continue;
    struct stat status;
    if (fstatat(dirfd(directory), entry->d_name, &status, flags) != 0) break;
    visit(entry->d_name, status);
    ++files;
  }
  closedir(directory);
  return files == kFiles;
}

void list_file(benchmark::State& state) {
  uint32_t comprc;
  for (auto _ : state)
    if (xdfc_list_file("files/e*", "!listing", &comprc) != 0) state.SkipWithError("no listing");
}

void bare_list_file(benchmark::State& state) {
  for (auto _ : state) {
    FILE* const out = fopen("bare", "w");
    const bool whole = walk(0, [out](const char* name, const struct stat& status) {
      struct tm local = {};
      localtime_r(&status.st_ctime, &local);
      fprintf(out, "%-49.49s%10lld  %02d-%02d-%02d  %2d:%02d%c\n", name, static_cast<long long>(status.st_size),
              local.tm_mon + 1, local.tm_mday, local.tm_year % 100, local.tm_hour % 12, local.tm_min,
              local.tm_hour < 12 ? 'a' : 'p');
    });
    fclose(out);
    if (!whole) state.SkipWithError("not all files");
  }
}

void long_listing(benchmark::State& state) {
  for (auto _ : state) {
    char* reply;
    uint32_t comprc;
    if (xdfc_emul_xrem_dir(&reply, "files", &comprc) != 0) state.SkipWithError("no reply");
    plovmemdebug_free(reply, __FILE__, __LINE__);
  }
}

void bare_long_listing(benchmark::State& state) {
  for (auto _ : state) {
    char* reply = nullptr;
    size_t size = 0;
    FILE* const out = open_memstream(&reply, &size);
    const bool whole = walk(AT_SYMLINK_NOFOLLOW, [out](const char* name, const struct stat& status) {
      char date[32];
      struct tm local;
      strftime(date, sizeof date, "%b %e %R", localtime_r(&status.st_mtime, &local));
      fprintf(out, "-%s%s%s%4lu %-8u %-8u%9lld %s %s\n", "rw-", "r--", "r--",
              static_cast<unsigned long>(status.st_nlink), status.st_uid, status.st_gid,
              static_cast<long long>(status.st_size), date, name);
    });
    fclose(out);
    free(reply);
    if (!whole) state.SkipWithError("not all files");
  }
}

void list_file_mem(benchmark::State& state) {
  std::string names(kNames, '\0');
  uint32_t count, comprc;
  for (auto _ : state)
    if (xdfc_list_file_mem("files/e*", names.data(), kNames, &count, &comprc) != 0) state.SkipWithError("no names");
}

void count_files(benchmark::State& state) {
  uint32_t count, comprc;
  for (auto _ : state)
    if (xdfc_count_files(&count, "files/e*", &comprc) != 0 || count != kFiles) state.SkipWithError("not counted");
}

void name_list(benchmark::State& state) {
  for (auto _ : state) {
    char* reply;
    uint32_t comprc;
    if (xdfc_emul_ftp_nlst(&reply, "files", &comprc) != 0) state.SkipWithError("no reply");
    plovmemdebug_free(reply, __FILE__, __LINE__);
  }
}

// Names alone.
void bare_names(benchmark::State& state) {
  for (auto _ : state) {
    std::string names;
    DIR* const directory = opendir("files");
    while (const struct dirent* const entry = readdir(directory))
      names.append(entry->d_name, strlen(entry->d_name) + 1);
    closedir(directory);
    benchmark::DoNotOptimize(names.data());
  }
}

double children_ns() {
  struct rusage usage;
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto ns = [](const struct timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
  };
  return ns(usage.ru_utime) + ns(usage.ru_stime);
}

void program(benchmark::State& state, const char* command) {
  const double before = children_ns();
  for (auto _ : state)
    if (system(command) != 0) state.SkipWithError("the program failed");
  state.counters["child"] = benchmark::Counter(children_ns() - before, benchmark::Counter::kAvgIterations);
}

}  // namespace

int main(int argc, char** argv) {
  make_files();
  benchmark::RegisterBenchmark("list_file", list_file);
  benchmark::RegisterBenchmark("bare_list_file", bare_list_file);
  benchmark::RegisterBenchmark("long_listing", long_listing);
  benchmark::RegisterBenchmark("bare_long_listing", bare_long_listing);
  benchmark::RegisterBenchmark("list_file_mem", list_file_mem);
  benchmark::RegisterBenchmark("count_files", count_files);
  benchmark::RegisterBenchmark("name_list", name_list);
  benchmark::RegisterBenchmark("bare_names", bare_names);
  benchmark::RegisterBenchmark("ls", program, "exec ls -l files > ls.out")->Iterations(5);
  benchmark::RegisterBenchmark("find", program, "exec find files -ls > find.out")->Iterations(5);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
