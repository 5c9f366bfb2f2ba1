// One read and one write of a 4-byte field, alone and while 1, 3 and 7 other processes do the same without a pause.
// Beside each: the bare work that an operation cannot do without, by the same number of processes: the probes, the
// trace lines, the two calls on the semaphore, four bytes copied. And LMDB: what one would use instead, for processes
// that share small values.
#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "xpce.h"
#include "xsim.h"
#include "xtr.h"

namespace {

constexpr uint32_t kField = 7;

struct Path {
  void (*prepare)();  // in the process that will run it
  void (*once)();
};

void must(bool holds, const char* what) {
  if (holds) return;
  perror(what);
  abort();
}

void read_field() {
  uint32_t value, comprc;
  must(xsim_read(kField, &value, &comprc) == 0, "xsim_read");
}

void write_field() {
  static uint32_t value;
  uint32_t comprc;
  ++value;
  must(xsim_write(kField, &value, 0, &comprc) == 0, "xsim_write");
}

int bare_set;
volatile uint32_t* bare_value;

// The probes of comprc and of the buffer, the lines, and the wait that the semaphore is for.
void bare(int32_t (*probe)(const void*, uint32_t, uint32_t*)) {
  uint32_t scratch, comprc, value = 0;
  xtr_trace("XSIM   T: -> xsim_read");
  xpce_ckptr(&comprc, sizeof comprc, &scratch);
  xtr_trace("XSIMSRDF:  SIM ID=%d", kField);
  xtr_trace("XSIMCHKF: -> xsim_check");
  xtr_trace("XSIMCHKF: <- xsim_check");
  probe(&value, sizeof value, &scratch);
  xtr_trace("XSIM   D: -> xsim_locksem");
  sembuf down[2] = {{0, 0, 0}, {0, 1, SEM_UNDO}};
  while (semop(bare_set, down, 2) != 0) {
  }
  *bare_value = *bare_value + value;
  xtr_trace("XSIM   D: -> xsim_exit");
  sembuf up = {0, -1, SEM_UNDO};
  semop(bare_set, &up, 1);
  xtr_trace("XSIM   D: <- xsim_exit");
  xtr_trace("XSIM   T: <- xsim_read");
}

void bare_read() {
  bare(xpce_ckptr);
}

void bare_write() {
  bare(xpce_ckptr_rd);
}

MDB_env* environment;
MDB_dbi table;

// A process opens it itself: an environment does not survive a fork.
void open_lmdb() {
  MDB_txn* transaction;
  mkdir("lmdb", 0755);
  must(mdb_env_create(&environment) == 0 && mdb_env_open(environment, "lmdb", MDB_NOSYNC | MDB_WRITEMAP, 0644) == 0 &&
           mdb_txn_begin(environment, nullptr, 0, &transaction) == 0 &&
           mdb_dbi_open(transaction, nullptr, MDB_INTEGERKEY, &table) == 0,
       "lmdb");
  uint32_t id = kField, number = 0;
  MDB_val key = {sizeof id, &id}, value = {sizeof number, &number};
  must(mdb_put(transaction, table, &key, &value, 0) == 0 && mdb_txn_commit(transaction) == 0, "lmdb");
}

void lmdb_access(bool writes) {
  MDB_txn* transaction;
  uint32_t id = kField;
  static uint32_t number;
  MDB_val key = {sizeof id, &id}, value = {sizeof number, &number};
  must(mdb_txn_begin(environment, nullptr, writes ? 0 : MDB_RDONLY, &transaction) == 0, "mdb_txn_begin");
  ++number;
  must((writes ? mdb_put(transaction, table, &key, &value, 0) : mdb_get(transaction, table, &key, &value)) == 0,
       "lmdb");
  if (writes)
    must(mdb_txn_commit(transaction) == 0, "mdb_txn_commit");
  else
    mdb_txn_abort(transaction);
}

void nothing() {}

// The other processes, each at the path without a pause, ended with the object.
class Others {
 public:
  Others(const Path& path, int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
      const pid_t child = fork();
      if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        path.prepare();
        for (;;) path.once();
      }
      children_.push_back(child);
    }
    if (count > 0) usleep(50000);  // all at work
  }
  ~Others() {
    for (const pid_t child : children_) kill(child, SIGKILL);
    for (const pid_t child : children_) waitpid(child, nullptr, 0);
  }
  Others(const Others&) = delete;
  Others& operator=(const Others&) = delete;

 private:
  std::vector<pid_t> children_;
};

void run(benchmark::State& state, Path path) {
  const Others others(path, state.range(0) - 1);
  path.prepare();
  for (auto _ : state) path.once();
}

}  // namespace

int main(int argc, char** argv) {
  bare_set = semget(IPC_PRIVATE, 1, 0600);
  void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  must(bare_set >= 0 && page != MAP_FAILED, "semget, mmap");
  bare_value = static_cast<uint32_t*>(page);
  must(xsim_size(kField) == sizeof(uint32_t), "the map's field 7");
  const struct {
    const char* name;
    Path path;
  } paths[] = {
      {"read", {nothing, read_field}},
      {"write", {nothing, write_field}},
      {"bare_read", {nothing, bare_read}},
      {"bare_write", {nothing, bare_write}},
      {"lmdb_read", {open_lmdb, [] { lmdb_access(false); }}},
      {"lmdb_write", {open_lmdb, [] { lmdb_access(true); }}},
  };
  for (const auto& [name, path] : paths)
    for (const int processes : {1, 2, 4, 8}) {
      auto* const benchmark = benchmark::RegisterBenchmark(name, run, path)->Arg(processes);
      if (processes > 1) benchmark->UseRealTime();
    }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  semctl(bare_set, 0, IPC_RMID);
}
