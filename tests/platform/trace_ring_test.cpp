// The trace facility: what a line looks like, that no line is torn or lost, and that a damaged ring harms nobody.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/shm.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/files.h"
#include "xtr.h"

namespace {

using Fetch = decltype(&xtr_fetch);
constexpr uint32_t kLines = 8192;  // that the ring holds

std::string fetch_text(Fetch fetch = xtr_fetch, uint32_t size = kLines * 600) {
  std::string buffer(size, 'x');
  uint32_t count = 0, code = 99;
  EXPECT_EQ(fetch(buffer.data(), size, 1, &count, &code), 0);
  EXPECT_EQ(code, XTR_SHARED_RING);
  EXPECT_EQ(buffer.find_first_not_of('\0', count), std::string::npos) << "not cleared behind the text";
  buffer.resize(count);
  return buffer;
}

// The texts of the lines, without time and ids.
std::vector<std::string> texts(const std::string& fetched) {
  std::vector<std::string> result;
  std::istringstream in(fetched);
  for (std::string line; std::getline(in, line);) {
    char date[11], clock[17];
    unsigned pid, tid;
    int start = 0;
    EXPECT_EQ(sscanf(line.c_str(), "%10s %16s %u/%u%n", date, clock, &pid, &tid, &start), 4) << line;
    result.push_back(line.substr(static_cast<size_t>(start) + 1));
  }
  return result;
}

std::string last_text() {
  const auto all = texts(fetch_text(xtr_fetch_tid, 2000));
  return all.empty() ? "(none)" : all.back();
}

template <class... Arguments>
std::string traced(const char* format, Arguments... arguments) {
  xtr_trace(format, arguments...);
  return last_text();
}

template <class... Arguments>
void expect_as_printf(const char* format, Arguments... arguments) {
  char expected[2000];
  snprintf(expected, sizeof expected, format, arguments...);
  EXPECT_EQ(traced(format, arguments...), expected) << format;
}

// The line with this number: it shows when it is mixed with another.
std::string numbered(int writer, int number) {
  const std::string n = std::to_string(number);
  const std::string fill(static_cast<size_t>(number % 90), static_cast<char>('a' + number % 26));
  return "w" + std::to_string(writer) + " n" + n + " " + fill + " n" + n + " n" + n;
}

void trace_numbered(int writer, int first, int end) {
  for (int i = first; i < end; ++i) xtr_trace("%s", numbered(writer, i).c_str());
}

// The numbers of each writer in the order of the ring; fails on a line that is not whole.
std::map<int, std::vector<int>> numbers(const std::string& fetched) {
  std::map<int, std::vector<int>> result;
  for (const std::string& text : texts(fetched)) {
    int writer, number;
    if (sscanf(text.c_str(), "w%d n%d", &writer, &number) != 2) continue;
    EXPECT_EQ(text, numbered(writer, number));
    result[writer].push_back(number);
  }
  return result;
}

std::vector<int> range(int first, int end) {
  std::vector<int> result;
  for (int i = first; i < end; ++i) result.push_back(i);
  return result;
}

// The ring as any process of the user may reach it.
struct RawRing {
  RawRing() : id(shmctl(0, SHM_STAT, &status)) {
    if (id >= 0) bytes = static_cast<uint8_t*>(shmat(id, nullptr, 0));
  }
  ~RawRing() {
    if (id >= 0) shmdt(bytes);
  }
  shmid_ds status;
  int id;
  uint8_t* bytes = nullptr;
};

int run_self(const char* role, const char* trace) {
  return test::in_child([=] {
    setenv("PLOV_TRACE", trace, 1);
    execl("/proc/self/exe", "trace_ring_test", role, nullptr);
    return 99;
  });
}

TEST(TraceFormat, IsThatOfPrintf) {
  for (const char* format :
       {"%d", "%i", "%5d|", "%-5d|", "%05d", "%+d", "% d", "%.3d", "%8.3d|", "%-8.3d|", "%hhd", "%hd"})
    for (int value : {0, 7, -7, 1234567, INT32_MIN, INT32_MAX}) expect_as_printf(format, value);
  for (const char* format :
       {"%u", "%x", "%X", "%o", "%#x", "%#X", "%#o", "%#.3o", "%4.4X", "%.8x", "%08x", "%#08x", "%-6x|", "%.0x"})
    for (unsigned value : {0u, 9u, 0xABCu, 0xFFFFFFFFu}) expect_as_printf(format, value);
  expect_as_printf("%ld %lu %lX %zu %td", -5L, 5UL, 0xABUL, sizeof(int), ptrdiff_t{-3});
  expect_as_printf("%lld %llu %llx %jd", -1LL, ~0ULL, 0x123456789ABCDEFULL, intmax_t{INT64_MIN});
  expect_as_printf("%s|%10s|%-10s|%.2s|%.*s|%*d|%-*d|", "abc", "abc", "abc", "abc", 1, "abc", 6, 42, 6, 42);
  expect_as_printf("%c%c%5c|%-5c|100%%", 'a', 'b', 'c', 'd');
  expect_as_printf("%p %p %20p|%-20p|", nullptr, "", nullptr, reinterpret_cast<void*>(0xBEEF));
  expect_as_printf("%f %.2f %10.3e| %g %Lf", 1.5, -2.345, 12345.678, 0.0001, 2.5L);
}

TEST(TraceFormat, HarmlessWhereThatOfPrintfIsNot) {
  int untouched = 42;
  EXPECT_EQ(traced("a %n b %d", &untouched, 5), "a %n b 5");
  EXPECT_EQ(untouched, 42);
  EXPECT_EQ(traced("%S and %ls", "one", "two"), "one and two");
  EXPECT_EQ(
      traced("%s|%8s|%.3s", static_cast<char*>(nullptr), static_cast<char*>(nullptr), static_cast<char*>(nullptr)),
      "(null)|  (null)|");
  EXPECT_EQ(traced("%d %q %s", 1), "1 %q %s") << "arguments behind an unknown conversion are not touched";
  EXPECT_EQ(traced("100%% at the end %"), "100% at the end %");
  EXPECT_EQ(traced("%2147483647d", 1), std::string(480, ' '));
  // A string that ends with its page, not with a NUL, is read no further than its precision.
  const std::string exact(16, 'z');
  EXPECT_EQ(traced("%.16s", std::vector<char>(exact.begin(), exact.end()).data()), exact);
  EXPECT_EQ(traced("one\x1b[31m\ttwo\nthree\n"), "one.[31m.two.three") << "a line stays one line";
  EXPECT_EQ(traced("%s", std::string(2000, 'q').c_str()), std::string(480, 'q'));
  errno = 77;
  xtr_trace("%s", "errno");
  EXPECT_EQ(errno, 77);
}

TEST(TraceLine, CarriesTimeProcessAndThread) {
  std::thread([] {
    const time_t before = time(nullptr);
    xtr_trace("stamped");
    const std::string line = fetch_text(xtr_fetch_tid, 2000);
    tm stamp = {};
    unsigned pid, tid, microseconds;
    const char* const rest = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S.", &stamp);
    ASSERT_TRUE(rest && sscanf(rest, "%6uZ %u/%u stamped", &microseconds, &pid, &tid) == 3) << line;
    EXPECT_GE(timegm(&stamp), before);
    EXPECT_LE(timegm(&stamp), time(nullptr));
    EXPECT_EQ(pid, static_cast<unsigned>(getpid()));
    EXPECT_EQ(tid, static_cast<unsigned>(gettid()));
    EXPECT_NE(tid, pid);
  }).join();
}

TEST(TraceLine, IdsAreRightInAChildHoweverForked) {
  xtr_trace("parent");
  const auto right = [] {
    return xtr_getpid() == static_cast<uint32_t>(getpid()) && xtr_gettid() == static_cast<uint32_t>(gettid()) ? 0 : 1;
  };
  EXPECT_EQ(test::in_child(right), 0);
  const pid_t bare = _Fork();
  if (bare == 0) _exit(right());
  EXPECT_EQ(test::wait_for(bare), 0);
}

TEST(TraceLine, DumpShowsEveryByte) {
  const std::string bytes("0123456789abcdef\0\xFF", 18);
  xtr_dump_bytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
  xtr_dump_bytes(bytes.data(), 0);
  EXPECT_THAT(texts(fetch_text(xtr_fetch_tid)),
              testing::ElementsAre("00000000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  |0123456789abcdef|",
                                   "00000010  00 FF                                            |..|"));
}

TEST(TraceFetch, GivesTheNewestWholeLinesThatFit) {
  for (int i = 0; i < 100; ++i) xtr_trace("line %02d", i);
  const std::string all = fetch_text(xtr_fetch_tid);
  const size_t line = all.size() / 100;
  for (const auto& [n, width, lines] : {std::tuple<uint32_t, uint32_t, size_t>{static_cast<uint32_t>(3 * line), 1, 3},
                                        {1, static_cast<uint32_t>(3 * line - 1), 2},
                                        {50, 80, 4000 / line},
                                        {0, 80, 0},
                                        {5, 1, 0}}) {
    std::string buffer(n * width + 1, 'x');
    uint32_t count = 99, code = 99;
    ASSERT_EQ(xtr_fetch_tid(buffer.data(), n, width, &count, &code), 0);
    EXPECT_EQ(count, lines * line);
    EXPECT_EQ(buffer.substr(0, count), all.substr(all.size() - count));
    EXPECT_EQ(buffer.back(), 'x') << "wrote past the buffer";
  }
  uint32_t count = 99, code = 0;
  EXPECT_EQ(xtr_fetch(nullptr, 1, 1, &count, &code), 2);
  EXPECT_EQ(code, XTR_BAD_ARGUMENT);
  char small[8];
  EXPECT_EQ(xtr_fetch(small, 0x10000, 0x10000, nullptr, nullptr), 2);
}

TEST(TraceFetch, SelectsThreadProcessAndFacility) {
  xtr_trace("mine");
  std::thread([] { xtr_trace("of a thread"); }).join();
  const pid_t child = test::start_child([] { return xtr_trace("of a child"); });
  ASSERT_EQ(test::wait_for(child), 0);
  EXPECT_THAT(texts(fetch_text(xtr_fetch_tid)), testing::ElementsAre("mine"));
  EXPECT_THAT(texts(fetch_text(xtr_fetch_pid)), testing::ElementsAre("mine", "of a thread"));
  EXPECT_THAT(texts(fetch_text(xtr_fetch)), testing::ElementsAre("mine", "of a thread", "of a child"));
  char buffer[1000];
  uint32_t count, code;
  ASSERT_EQ(xtr_fetch_of(static_cast<uint32_t>(child), buffer, 1, sizeof buffer, &count, &code), 0);
  EXPECT_THAT(texts(std::string(buffer, count)), testing::ElementsAre("of a child"));
}

TEST(TraceRing, KeepsEveryLineOfManyThreadsAndProcesses) {
  constexpr int kProcesses = 4, kThreads = 4, kEach = 400;
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p)
    children.push_back(test::start_child([p] {
      std::vector<std::thread> threads;
      for (int t = 0; t < kThreads; ++t) threads.emplace_back([=] { trace_numbered(p * kThreads + t, 0, kEach); });
      for (std::thread& thread : threads) thread.join();
      return 0;
    }));
  for (pid_t child : children) EXPECT_EQ(test::wait_for(child), 0);
  const auto found = numbers(fetch_text());
  EXPECT_EQ(found.size(), size_t{kProcesses * kThreads});
  for (const auto& [writer, list] : found) EXPECT_EQ(list, range(0, kEach)) << "writer " << writer;
}

TEST(TraceRing, NewestLinesPushOutTheOldestAndNoneIsTorn) {
  std::atomic<bool> done{false};
  std::vector<std::thread> writers;
  for (int w = 0; w < 3; ++w) writers.emplace_back(trace_numbered, w, 0, 20000);
  std::thread reader([&] {
    while (!done.load()) numbers(fetch_text());
  });
  for (std::thread& writer : writers) writer.join();
  done.store(true);
  reader.join();
  trace_numbered(9, 0, 10000);
  EXPECT_EQ(texts(fetch_text()).size(), kLines);
  EXPECT_EQ(numbers(fetch_text()).at(9), range(10000 - static_cast<int>(kLines), 10000));
}

std::atomic<int> signals_taken;

TEST(TraceRing, SignalHandlersMayTraceAndFetch) {
  struct sigaction action = {};
  action.sa_handler = [](int) {
    static char buffer[4000];
    uint32_t count, code;
    xtr_trace("from the handler %d", signals_taken.load());
    if (xtr_fetch_tid(buffer, 50, 80, &count, &code) == 0) ++signals_taken;
  };
  sigaction(SIGALRM, &action, nullptr);
  const itimerval soon = {{0, 0}, {0, 30}};
  for (int i = 0; i < 1000000 && (i < 5000 || signals_taken.load() < 20); ++i) {
    if (i % 100 == 0) setitimer(ITIMER_REAL, &soon, nullptr);
    trace_numbered(1, i, i + 1);
  }
  EXPECT_GE(signals_taken.load(), 20);
  const auto list = numbers(fetch_text()).at(1);
  EXPECT_EQ(list, range(list.front(), list.back() + 1)) << "a line that a signal interrupted is missing";
}

TEST(TraceRing, BelongsToItsUserAloneAndHealsFromDamage) {
  xtr_trace("before");
  RawRing ring;
  ASSERT_GE(ring.id, 0);
  EXPECT_EQ(ring.status.shm_perm.mode & 0777, 0600u);
  EXPECT_EQ(ring.status.shm_perm.uid, geteuid());
  EXPECT_EQ(ring.status.shm_segsz, 64u + kLines * 512u);
  std::mt19937 random(1);
  std::mt19937::result_type word;
  for (int round = 0; round < 16; ++round) {
    for (int i = 0; i < 20; ++i) xtr_trace("a good line of round %d", round);
    if (round % 4 == 0) std::fill_n(ring.bytes, ring.status.shm_segsz, round % 8 == 0 ? 0xFF : 0);
    if (round % 4 == 1)
      for (size_t i = 0; i + 4 <= ring.status.shm_segsz; i += 4) memcpy(ring.bytes + i, &(word = random()), 4);
    if (round % 4 > 1)
      for (int i = 0; i < 20000; ++i) ring.bytes[random() % ring.status.shm_segsz] = static_cast<uint8_t>(random());
    for (const std::string& text : texts(fetch_text()))
      EXPECT_EQ(text.rfind("a good line of round ", 0), 0u) << "a damaged line was shown: " << text;
    xtr_trace("a good line of round %d, healed", round);
    EXPECT_EQ(last_text(), "a good line of round " + std::to_string(round) + ", healed");
  }
}

TEST(TraceRing, ASegmentThatIsNotOursIsLeftAlone) {
  RawRing ring;
  ASSERT_GE(ring.id, 0);
  const key_t key = ring.status.shm_perm.__key;
  const size_t size = ring.status.shm_segsz;
  shmctl(ring.id, IPC_RMID, nullptr);
  using Foreign = std::tuple<size_t, int, uid_t>;
  for (const auto& [bytes, mode, owner] : {Foreign{100, 0600, geteuid()}, Foreign{2 * size, 0600, geteuid()},
                                           Foreign{size, 0666, geteuid()}, Foreign{size, 0600, 12345}}) {
    const int id = shmget(key, bytes, IPC_CREAT | IPC_EXCL | mode);
    ASSERT_GE(id, 0);
    shmid_ds status;
    shmctl(id, IPC_STAT, &status);
    status.shm_perm.uid = owner;
    if (shmctl(id, IPC_SET, &status) == 0) {
      EXPECT_EQ(run_self("own-ring", ""), 0) << bytes << " " << mode;
    }
    shmctl(id, IPC_STAT, &status);
    EXPECT_EQ(status.shm_lpid, 0) << "somebody attached it";
    shmctl(id, IPC_RMID, nullptr);
  }
}

TEST(TraceEcho, GoesToTheFileAndNeverToAnotherUnderItsNumber) {
  EXPECT_EQ(run_self("echo", "echo.txt"), 0);
  EXPECT_THAT(texts(test::read_file("echo.txt")), testing::ElementsAre("one", "two"));
  EXPECT_EQ(test::mode_of("echo.txt"), 0600u);
  EXPECT_EQ(test::read_file("victim.txt"), "");
  EXPECT_EQ(test::in_child([] {
              int ends[2];
              if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0 || close(ends[0]) != 0) return 98;
              return run_self("echo", "stderr");
            }),
            0)
      << "ended by a reader that is gone";
}

TEST(TraceMutex, ReportsItsHolderAndIsFreshInAChild) {
  ASSERT_EQ(pthread_mutex_lock(&xtr_mutex_sem), 0);
  EXPECT_EQ(pthread_mutex_lock(&xtr_mutex_sem), EDEADLK);
  const auto usable = [] {
    return pthread_mutex_lock(&xtr_mutex_sem) == 0 && pthread_mutex_lock(&xtr_mutex_sem) == EDEADLK &&
                   pthread_mutex_unlock(&xtr_mutex_sem) == 0
               ? 0
               : 1;
  };
  EXPECT_EQ(test::in_child(usable), 0) << "forked by the holder";
  EXPECT_EQ(pthread_mutex_unlock(&xtr_mutex_sem), 0) << "the parent still holds it";

  std::atomic<int> stage{0};
  // Detached: the child of a fork has no thread to join.
  std::thread([&] {
    pthread_mutex_lock(&xtr_mutex_sem);
    stage = 1;
    usleep(100000);
    stage = 2;
    pthread_mutex_unlock(&xtr_mutex_sem);
    stage = 3;
  }).detach();
  while (stage == 0) usleep(1000);
  EXPECT_EQ(test::in_child([&] { return stage >= 2 ? usable() : 2; }), 0) << "the fork did not wait for the holder";
  while (stage != 3) usleep(1000);
  EXPECT_EQ(pthread_mutex_lock(&xtr_mutex_sem), 0);
  EXPECT_EQ(pthread_mutex_unlock(&xtr_mutex_sem), 0);
}

int own_ring() {
  char buffer[1000];
  uint32_t count, code;
  xtr_trace("kept in the process");
  if (xtr_fetch_tid(buffer, 1, sizeof buffer, &count, &code) != 0 || code != XTR_OWN_RING) return 1;
  return strstr(buffer, "kept in the process\n") ? 0 : 2;
}

int echo() {
  xtr_trace("one");
  xtr_trace("two");
  for (int fd = 3; fd < 64; ++fd) close(fd);
  for (int i = 0; i < 8; ++i)
    if (open("victim.txt", O_WRONLY | O_CREAT | O_APPEND, 0600) < 0) return 1;
  xtr_trace("three");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && strcmp(argv[1], "own-ring") == 0) return own_ring();
  if (argc > 1 && strcmp(argv[1], "echo") == 0) return echo();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
