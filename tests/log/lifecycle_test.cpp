// Making, opening and refusing log files.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "support/child.h"
#include "support/files.h"
#include "support/log_calls.h"
#include "xlog.h"

using namespace test;

namespace {

// What xlog_open_file says of a name; a stream is closed again.
struct Opened {
  int result;
  uint16_t error_id;
  uint16_t level;
  uint32_t reason;
};

Opened open_log(const std::string& session) {
  auto err = std::make_unique<xlog_err_interface>();
  *err = {};
  memcpy(err->target_session, session.data(), session.size());
  const int result = xlog_open_file(err.get());
  const Opened opened = {result, err->error_id, err->error_level, err->error_reason};
  if (result == 0) {
    EXPECT_EQ(ftell(err->file_handle), 0);
  }
  // In place of a damaged file the new one is handed on open.
  if (err->file_handle) {
    EXPECT_EQ(xlog_close_file(err.get()), 0);
    EXPECT_EQ(err->file_handle, nullptr);
  }
  return opened;
}

// Runs in a child without the superuser's rights over files.
template <class Body>
int as_plain_user(Body body) {
  return in_child([&] { return geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0) ? 99 : body(); });
}

TEST(NewFile, MainLogIsExactly1104Bytes) {
  setenv("TZ", "XXX-2:30", 1);
  const uint32_t before = static_cast<uint32_t>(time(nullptr));
  ASSERT_EQ(open_log("").result, 0);
  const std::string bytes = read_file(data_path("wexolog.log"));
  ASSERT_EQ(bytes.size(), 1104u);
  EXPECT_EQ(mode_of(data_path("wexolog.log")), 0600u);

  uint32_t created;
  memcpy(&created, bytes.data() + 1048, sizeof created);
  EXPECT_GE(created, before);
  EXPECT_LE(created, before + 5);
  std::string expected = LogFile(LogFile::kMain, created).bytes();
  expected[1086] = '\x96';  // 150 minutes east
  EXPECT_EQ(bytes, expected);
}

TEST(NewFile, KindsByName) {
  struct Case {
    const char* session;
    const char* file;
    unsigned size, flags;
    size_t bytes;
  };
  for (const Case& c :
       {Case{"LoG", "wexolog.log", 10240, 0x0120, 1104}, Case{"e4", "wexoe4.log", 2560, 0x1120, 1040},
        Case{"e4x", "wexoe4x.log", 2560, 0x1120, 1040}, Case{"alt", "wexoalt.log", 5000, 0x0120, 1104},
        Case{"Ab1", "wexoAb1.log", 2560, 0x0120, 1104}, Case{"!wexoe4q.log", "wexoe4q.log", 10240, 0x0120, 1104}}) {
    EXPECT_EQ(open_log(c.session).result, 0) << c.session;
    const std::string bytes = read_file(data_path(c.file));
    ASSERT_EQ(bytes.size(), c.bytes) << c.session;
    xlog_file_header header;
    memcpy(&header, bytes.data(), sizeof header);
    EXPECT_EQ(header.max_file_size, c.size) << c.session;
    EXPECT_EQ(header.file_flags, c.flags) << c.session;
  }
  const std::string path = console_path() + "elsewhere.bin";
  EXPECT_EQ(open_log("!" + path).result, 0);
  EXPECT_EQ(read_file(path).size(), 1104u);
}

TEST(NewFile, RefusedNames) {
  const Opened five = open_log("abcde");
  EXPECT_EQ(five.result, 2);
  EXPECT_EQ(five.error_id, XLOG_ERR_NAME_TOO_LONG);
  EXPECT_EQ(five.reason, 5u);
  EXPECT_EQ(five.level, XLOG_LEVEL_NONE);
  for (const std::string& name :
       {std::string("!no-such-entry.bin"), "!/" + std::string(2000, 'x') + "/y", "!" + std::string(300, 'x')}) {
    const Opened opened = open_log(name);
    EXPECT_EQ(opened.result, 8) << name;
    EXPECT_EQ(opened.error_id, XLOG_ERR_OPEN);
    EXPECT_NE(opened.reason, 0u);
  }
}

TEST(NewFile, LeavesNothingWhenItCannotBeInitialised) {
  ASSERT_EQ(remove((console_path() + "wexoinit.trm").c_str()), 0);
  const Opened opened = open_log("");
  EXPECT_EQ(opened.result, 8);
  EXPECT_EQ(opened.error_id, XLOG_ERR_CONFIG_SIZE);
  EXPECT_FALSE(exists(data_path("wexolog.log")));
  EXPECT_FALSE(exists(data_path("wexolog.log.init")));
}

TEST(NewFile, LeavesNothingWhenTheFileMayNotGrow) {
  chmod((console_path() + "..").c_str(), 0755);
  // Each limit cuts another write of the new file.
  for (const rlim_t limit : {0, 1000, 1040, 1083, 1100}) {
    const int status = as_plain_user([&] {
      signal(SIGXFSZ, SIG_IGN);
      const rlimit file_size = {limit, limit};
      setrlimit(RLIMIT_FSIZE, &file_size);
      const std::string path = "/tmp/plovsp1-limit-" + std::to_string(getpid()) + ".log";
      const Opened opened = open_log("!" + path);
      const bool clean = !exists(path) && !exists(path + ".init");
      return opened.result == 8 && clean && (opened.error_id & 0xFFF0) == 0x4400 ? 0 : 1;
    });
    EXPECT_EQ(status, 0) << "limit " << limit;
  }
}

TEST(NewFile, IsNeverMadeThroughALink) {
  ASSERT_EQ(open_log("a").result, 0);  // makes the directory
  const std::string victim = console_path() + "victim";
  ASSERT_EQ(symlink(victim.c_str(), data_path("wexolog.log").c_str()), 0);
  EXPECT_EQ(open_log("").error_id, XLOG_ERR_OPEN);
  EXPECT_FALSE(exists(victim));
  // What a dead creator left behind, or somebody put there, does not stop the next one.
  write_file(victim, "precious");
  ASSERT_EQ(symlink(victim.c_str(), data_path("wexob.log.init").c_str()), 0);
  EXPECT_EQ(open_log("b").result, 0);
  EXPECT_EQ(read_file(victim), "precious");
}

TEST(ExistingFile, DamageIsReplacedAndAnInterruptedPruneFinished) {
  ASSERT_EQ(open_log("").result, 0);
  const std::string good = read_file(data_path("wexolog.log"));
  for (const size_t size : {0, 1, 1039}) {
    write_file(data_path("wexolog.log"), good.substr(0, size));
    const Opened opened = open_log("");
    EXPECT_EQ(opened.result, 8) << size;
    EXPECT_EQ(opened.error_id, XLOG_ERR_READ_FILE_HEADER) << size;
  }
  std::string pruning = good;
  pruning[1038] |= 0x10;
  write_file(data_path("wexolog.log"), pruning);
  EXPECT_EQ(open_log("").result, 0);
  EXPECT_EQ(read_all().size(), 2u) << "the Log Info Log, and the event that tells of the end of the prune";
  std::string overlapping = good;
  memset(&overlapping[offsetof(xlog_file_header, file_size)], 0, 4);
  write_file(data_path("wexolog.log"), overlapping);
  EXPECT_EQ(record({}), std::make_pair(8, XLOG_RECORD_READ_SHORT));
  EXPECT_EQ(read_file(data_path("wexosave.log")), overlapping);
  ASSERT_EQ(mkfifo(data_path("wexof.log").c_str(), 0600), 0);
  EXPECT_EQ(open_log("f").reason, static_cast<uint32_t>(EINVAL)) << "a FIFO keeps whoever opens it";
}

TEST(ExistingFile, IsReadWhereItCannotBeWritten) {
  ASSERT_TRUE(record({.blocks = {{0x10, "x"}}}) == std::make_pair(0, 0u));
  chmod(console_path().c_str(), 0755);
  chmod(data_path("wexolog.log").c_str(), 0444);
  chmod(data_path("").c_str(), 0555);
  ASSERT_EQ(chmod((console_path() + "..").c_str(), 0755), 0);
  EXPECT_EQ(as_plain_user([] {
              if (open_log("").result != 0) return 1;
              if (read_all().size() != 2) return 2;
              const Result refused = record({});
              return refused.sysrc == 8 && refused.comprc == XLOG_RECORD_HEADER_ERROR ? 0 : 3;
            }),
            0);
  // While its prune is unfinished its header is of no use, and whoever only reads cannot finish it.
  std::string pruning = read_file(data_path("wexolog.log"));
  pruning[1038] |= 0x10;
  write_file(data_path("wexolog.log"), pruning);
  EXPECT_EQ(as_plain_user([] { return open_log("").error_id == XLOG_ERR_OPEN ? 0 : 1; }), 0);
  EXPECT_EQ(read_file(data_path("wexolog.log")), pruning);
}

TEST(ExistingFile, WithoutPermissionIsRefusedWithItsCode) {
  ASSERT_EQ(open_log("").result, 0);
  chmod((console_path() + "..").c_str(), 0755);
  EXPECT_EQ(as_plain_user([] {
              const Opened opened = open_log("");
              return opened.result == 8 && opened.error_id == XLOG_ERR_OPEN && opened.reason == EACCES ? 0 : 1;
            }),
            0);
}

TEST(Configuration, IsReadOnceMoreForEachFile) {
  write_file(console_path() + "wexoinit.trm", "1 x\n2 x\n3 x\n4 x\n0 x\n");
  ASSERT_EQ(open_log("").result, 0);
  EXPECT_EQ(read_file(data_path("wexolog.log")).substr(0, 6), std::string("\x02\x00\x04\x00\x00\x00", 6));
  xlog_err_interface err = {};
  xlog_configuration configuration;
  EXPECT_EQ(xlog_process_init(&err, 1, &configuration), 0);
  EXPECT_EQ(configuration.e4_file_size, 3);
  ASSERT_EQ(remove((console_path() + "wexoinit.trm").c_str()), 0);
  EXPECT_NE(xlog_process_init(&err, 0, &configuration), 0);
  EXPECT_EQ(err.error_id, XLOG_ERR_CONFIG_SIZE);
  EXPECT_EQ(err.error_reason, static_cast<uint32_t>(ENOENT));
  mkdir((console_path() + "wexoinit.trm").c_str(), 0755);
  err = {};
  EXPECT_NE(xlog_process_init(&err, 0, &configuration), 0);
  EXPECT_EQ(err.error_id, XLOG_ERR_CONFIG_READ);
}

TEST(Configuration, HexadecimalDigits) {
  EXPECT_EQ(xlog_atoh("0F"), 0x0F);
  EXPECT_EQ(xlog_atoh("A9"), 0xA9);
}

}  // namespace
