// Reads and writes of a 4-byte field by 1, 2, 4 and 8 processes, all without a pause. Each process has the same work to
// do; what is measured is the time from the first one's begin until the last one is done, for each operation.
// Beside it: the bare work that an operation cannot do without, by the same number of processes: the probes, the trace
// lines, the two calls on the semaphore, four bytes copied. And what one would use instead for processes that share
// small values: LMDB, and Redis over a local socket.
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
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "xpce.h"
#include "xsim.h"
#include "xtr.h"

namespace {

constexpr uint32_t kField = 7;
constexpr int kOperations = 10000;  // of each process

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

// A Redis server of this run's own, ended with it.
pid_t redis_server = -1;
int redis_socket = -1;
constexpr char kRedisSocket[] = "redis.sock";

bool connect_redis() {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  strcpy(address.sun_path, kRedisSocket);
  redis_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(redis_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return true;
  close(redis_socket);
  return false;
}

void open_redis() {
  must(connect_redis(), kRedisSocket);
}

void ask_redis(const std::string& request, const char* answer) {
  char got[64];
  must(send(redis_socket, request.data(), request.size(), 0) == static_cast<ssize_t>(request.size()), "send");
  const size_t size = strlen(answer);
  for (size_t done = 0; done < size;) {
    const ssize_t more = recv(redis_socket, got + done, size - done, 0);
    must(more > 0, "recv");
    done += static_cast<size_t>(more);
  }
  must(memcmp(got, answer, size) == 0, "the answer of redis");
}

void redis_read() {
  static const std::string request = "*2\r\n$3\r\nGET\r\n$1\r\n7\r\n";
  ask_redis(request, "$4\r\nfour\r\n");
}

void redis_write() {
  static const std::string request = "*3\r\n$3\r\nSET\r\n$1\r\n7\r\n$4\r\nfour\r\n";
  ask_redis(request, "+OK\r\n");
}

// False when the machine has none.
bool start_redis() {
  redis_server = fork();
  if (redis_server == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!freopen("/dev/null", "w", stdout)) _exit(126);
    for (const char* program : {"redis-server", "redis-check-rdb"})  // one program that goes by its name
      execlp(program, "redis-server", "--port", "0", "--unixsocket", kRedisSocket, "--save", "", "--appendonly", "no",
             nullptr);
    _exit(127);
  }
  for (int tries = 0; tries < 500; ++tries) {
    if (connect_redis()) {
      redis_write();
      close(redis_socket);
      return true;
    }
    if (waitpid(redis_server, nullptr, WNOHANG) == redis_server) break;
    usleep(10000);
  }
  fprintf(stderr, "sim_bench: no redis-server to be had: left out\n");
  return false;
}

void nothing() {}

uint64_t nanoseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

constexpr unsigned kMostProcesses = 8;

struct Shared {
  pthread_barrier_t ready;
  // By the processes' own clocks: the one that started them may be late itself.
  uint64_t begin[kMostProcesses], end[kMostProcesses];
};

void work(const Path& path, Shared& shared, unsigned number) {
  path.prepare();
  for (int n = 0; n < kOperations / 10; ++n) path.once();
  pthread_barrier_wait(&shared.ready);
  shared.begin[number] = nanoseconds();
  for (int n = 0; n < kOperations; ++n) path.once();
  shared.end[number] = nanoseconds();
}

// All processes are children, the only one too: none is warmer than the others.
void run(benchmark::State& state, Path path) {
  const auto processes = static_cast<unsigned>(state.range(0));
  auto* const shared =
      static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  must(shared != MAP_FAILED, "mmap");
  pthread_barrierattr_t among_processes;
  pthread_barrierattr_init(&among_processes);
  pthread_barrierattr_setpshared(&among_processes, PTHREAD_PROCESS_SHARED);
  pthread_barrier_init(&shared->ready, &among_processes, processes);
  for (auto _ : state) {
    std::vector<pid_t> children;
    for (unsigned i = 0; i < processes; ++i) {
      const pid_t child = fork();
      if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        work(path, *shared, i);
        _exit(0);
      }
      children.push_back(child);
    }
    for (const pid_t child : children) {
      int status;
      must(waitpid(child, &status, 0) == child && status == 0, "a process of the benchmark");
    }
    const uint64_t took = *std::max_element(shared->end, shared->end + processes) -
                          *std::min_element(shared->begin, shared->begin + processes);
    state.SetIterationTime(static_cast<double>(took) * 1e-9 / (processes * kOperations));
  }
  munmap(shared, sizeof *shared);
}

}  // namespace

int main(int argc, char** argv) {
  bare_set = semget(IPC_PRIVATE, 1, 0600);
  void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  must(bare_set >= 0 && page != MAP_FAILED, "semget, mmap");
  bare_value = static_cast<uint32_t*>(page);
  must(xsim_size(kField) == sizeof(uint32_t), "the map's field 7");
  struct Contender {
    const char* name;
    Path path;
  };
  std::vector<Contender> contenders = {
      {"read", {nothing, read_field}},
      {"write", {nothing, write_field}},
      {"bare_read", {nothing, bare_read}},
      {"bare_write", {nothing, bare_write}},
      {"lmdb_read", {open_lmdb, [] { lmdb_access(false); }}},
      {"lmdb_write", {open_lmdb, [] { lmdb_access(true); }}},
  };
  if (start_redis()) {
    contenders.push_back({"redis_read", {open_redis, redis_read}});
    contenders.push_back({"redis_write", {open_redis, redis_write}});
  }
  for (const auto& [name, path] : contenders)
    benchmark::RegisterBenchmark(name, run, path)
        ->RangeMultiplier(2)
        ->Range(1, kMostProcesses)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  semctl(bare_set, 0, IPC_RMID);
  if (redis_server > 0) kill(redis_server, SIGTERM);
}
