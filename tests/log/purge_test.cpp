// Purging classes and files, pruning "e4", trimming a copy for Java.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/codes.h"
#include "support/files.h"
#include "support/log_calls.h"
#include "support/log_file.h"
#include "xlog.h"
#include "xnb.h"

using namespace test;

namespace {

// The bridge's side of one request.
struct {
  std::string name;
  int32_t status = 0;
  std::string message;
  int32_t sysrc = 0;
  uint32_t comprc = 0;
  int32_t result = -1;
  int references = 0;
} java;

}  // namespace

int32_t xnbGetObjectArgument(xnb_request_t, uint32_t index, xnb_object* object) {
  ++java.references;
  *object = &java.name;
  return index == 0 ? java.status : 1;
}
int32_t xnbGetArrayLength(xnb_object array, uint32_t* length) {
  *length = static_cast<uint32_t>(static_cast<std::string*>(array)->size());
  return 0;
}
int32_t xnbGetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, void* bytes) {
  memcpy(bytes, static_cast<std::string*>(array)->data() + start, count);
  return 0;
}
int32_t xnbReleaseObjectReference(xnb_object) {
  --java.references;
  return 0;
}
int32_t xnbSetNativeFunctionError(xnb_request_t, const char* message) {
  java.message = message;
  return 0;
}
int32_t xnbSetReturnCodes(xnb_request_t, int32_t sysrc, uint32_t comprc) {
  java.sysrc = sysrc;
  java.comprc = comprc;
  return 0;
}
int32_t xnbSetIntResult(xnb_request_t, int32_t value) {
  java.result = value;
  return 77;
}

namespace {

Codes purge(int32_t count, const std::string& classes, const std::string& target = "") {
  xlog_purge_block block = {};
  block.count = count;
  memcpy(block.classes, classes.data(), classes.size());
  memcpy(block.target_session, target.data(), target.size());
  return codes(xlog_log_purge, &block);
}

Codes purge_file(const std::string& target = "") {
  return purge(XLOG_PURGE_FILE, "", target);
}

// Names of a log's events, newest first, trailing blanks and NULs cut.
std::vector<std::string> names(const std::string& target = "") {
  std::vector<std::string> names;
  for (const ReadLog& log : read_all(target)) names.push_back(log.name.substr(0, log.name.find_last_not_of(" \0") + 1));
  for (std::string& name : names) name = name.c_str();
  return names;
}

void record_classes(std::initializer_list<uint8_t> classes, const std::string& target = "") {
  for (const uint8_t event_class : classes)
    ASSERT_EQ(record({.classes = event_class, .name = "class " + std::to_string(event_class), .target = target}).sysrc,
              0);
}

TEST(Purge, ClassesGoAndGapsAreClosed) {
  record_classes({1, 2, 1, 3, 1});
  EXPECT_EQ(purge(2, "\x01\x07"), Codes(0, 0)) << "a class without logs is nothing";
  EXPECT_EQ(names(),
            (std::vector<std::string>{"LOGPURGE", "class 3", "pruned logs", "class 2", "pruned logs", "Log Info Log"}))
      << "a run at the end leaves no event";
  const ReadLog event = read_all()[0];
  EXPECT_EQ(event.eventid.classes, 0);
  EXPECT_EQ(event.eventid.user, 145);

  // With count 0 only what is marked already goes.
  std::string bytes = read_file(data_path("wexolog.log"));
  xlog_file_header header;
  memcpy(&header, bytes.data(), sizeof header);
  const uint16_t deleted = XLOG_LOG_DELETED;
  bytes.replace(header.class_last_log[3] + offsetof(xlog_log_info, log_flags), 2,
                reinterpret_cast<const char*>(&deleted), 2);
  write_file(data_path("wexolog.log"), bytes);
  EXPECT_EQ(purge(0, ""), Codes(0, 0));
  EXPECT_EQ(names()[2], "pruned logs");
  EXPECT_EQ(names()[3], "pruned logs");
}

TEST(Purge, ANamedLogIsPurgedAndTheMainLogTellsOfIt) {
  record_classes({1, 2}, "abc");
  EXPECT_EQ(purge(1, "\x01", "abc"), Codes(0, 0));
  EXPECT_EQ(names("abc"), (std::vector<std::string>{"class 2", "pruned logs", "Log Info Log"}));
  EXPECT_EQ(names()[0], "LOGPURGE");
}

TEST(Purge, WrongCountsAndDamage) {
  record_classes({1, 1});
  EXPECT_EQ(purge(257, ""), Codes(2, XLOG_PURGE_BAD_COUNT));
  EXPECT_EQ(purge(-2, ""), Codes(2, XLOG_PURGE_BAD_COUNT));
  EXPECT_EQ(read_all().size(), 3u);
  LogFile file;
  file.add({.eventid = {1, 1, 1}});
  const uint32_t second = file.add({.eventid = {1, 1, 2}});
  file.info(second).prev_class_log_offset = second;
  write_file(data_path("wexolog.log"), file.bytes());
  EXPECT_EQ(purge(1, "\x01").second, XLOG_PURGE_BAD_LINK) << "a link to itself";
  file.info(second).prev_class_log_offset = XLOG_FILE_HEADER_SIZE;
  write_file(data_path("wexolog.log"), file.bytes());
  EXPECT_EQ(purge(1, "\x01").second, XLOG_PURGE_BAD_LINK) << "a link out of the class";
  file.header.class_last_log[1] = file.header.file_size;
  write_file(data_path("wexolog.log"), file.bytes());
  EXPECT_EQ(purge(1, "\x01").second, XLOG_PURGE_BAD_LINK);
  file.header.class_last_log[1] = 0;
  file.header.file_size = 500;
  write_file(data_path("wexolog.log"), file.bytes());
  purge(1, "\x01");  // a size that not even the file header fits into
  write_file(data_path("wexolog.log"), std::string(1039, '\0'));
  EXPECT_NE(purge(1, "\x01").first, 0);
}

TEST(Purge, AWholeFileGoesWithTheCopies) {
  record_classes({1});
  record_classes({1}, "abc");
  const auto lay_out = [] {
    for (const char* name : {"wexosave.log", "wexocomp.log", "wexocom0.log", "wexocom9.log", "wexocomA.log"})
      write_file(data_path(name), "copy");
  };
  lay_out();
  EXPECT_EQ(purge_file("abc"), Codes(0, 0));
  EXPECT_FALSE(exists(data_path("wexoabc.log")));
  for (const char* name : {"wexosave.log", "wexocomp.log", "wexocom0.log", "wexocom9.log"})
    EXPECT_FALSE(exists(data_path(name))) << name;
  EXPECT_TRUE(exists(data_path("wexocomA.log"))) << "beyond the ten copies of the configuration";
  EXPECT_EQ(names(), (std::vector<std::string>{"LOGPURGE", "class 1", "Log Info Log"}));
  EXPECT_EQ(read_all()[0].blocks.back().bytes, std::string("wexoabc.log") + '\0');

  EXPECT_EQ(purge_file("LOG"), Codes(0, 0));
  EXPECT_EQ(names(), (std::vector<std::string>{"LOGPURGE", "Log Info Log"})) << "a new main log";
  EXPECT_EQ(purge_file("none"), Codes(0, 0)) << "a file that does not exist is gone already";
  EXPECT_EQ(names().size(), 3u);

  // A name that is too long for a log must not be cut to another log's.
  record_classes({1}, "abcd");
  EXPECT_EQ(purge_file("abcdef"), Codes(0, 0));
  EXPECT_TRUE(exists(data_path("wexoabcd.log")));
  const std::string path = console_path() + "own.bin";
  for (const std::string& name : {"!" + path, std::string("!wexoabcd.log")}) {
    write_file(path, "own");
    EXPECT_EQ(purge_file(name), Codes(0, 0)) << name;
    EXPECT_EQ(read_all()[0].blocks.back().bytes, (name[1] == '/' ? name : name.substr(1)) + '\0');
  }
  EXPECT_TRUE(exists(path)) << "the second name was another's";
  EXPECT_FALSE(exists(data_path("wexoabcd.log")));
}

TEST(E4Prune, KeepsAFifthAndTellsOfIt) {
  write_file(console_path() + "wexoinit.trm", "9 x\n9 x\n9 x\n8 x\n0 x\n1 x\n1 x\n");
  EXPECT_EQ(xlog_e4_prune(), 0);
  EXPECT_EQ(names("e4"), std::vector<std::string>{"BRELECLOG"}) << "nothing to delete is told too";
  for (int i = 0; i < 8; ++i)
    ASSERT_EQ(record({.name = "event " + std::to_string(i), .target = "e4", .blocks = {{1, noise(1000)}}}).sysrc, 0);
  EXPECT_EQ(xlog_e4_prune(), 0);
  // 9 x 2048 / 5 is 3686: the oldest go until as much is gone as the file has above that.
  EXPECT_EQ(names("e4"), (std::vector<std::string>{"BRELECLOG", "event 7", "event 6", "pruned logs"}));
  const ReadLog event = read_all("e4")[0];
  EXPECT_EQ(event.eventid.user, 733);
  EXPECT_EQ(event.timestamp.hundredths, 0);
  ASSERT_EQ(event.blocks.size(), 1u);
  EXPECT_EQ(event.blocks[0].id, 241);
  EXPECT_EQ(event.blocks[0].bytes, std::string(2, '\0'));
  const std::string bytes = read_file(data_path("wexoe4.log"));
  xlog_file_header header;
  memcpy(&header, bytes.data(), sizeof header);
  EXPECT_EQ(header.class_last_log[0], bytes.size() - 42);
  EXPECT_EQ(header.last_log_offset, bytes.size() - 42);
  EXPECT_EQ(Java_com_zanth_vemra_base_brellogs_WriteData_jniPruneE4Log(nullptr, nullptr), 0);
  EXPECT_EQ(names("e4")[1], "BRELECLOG");
}

// A log of `count` events of 10,000 bytes, filled up to exactly `size`.
std::string log_of_size(size_t size) {
  std::filesystem::create_directories(data_path(""));
  LogFile file;
  uint16_t user = 0;
  while (size - file.bytes().size() > 20000)
    file.add({.eventid = {2, 1, user++}, .blocks = {stored(0x10, std::string(9959, 'd'))}});
  file.add({.eventid = {3, 1, 0}, .blocks = {stored(0x10, std::string(size - file.bytes().size() - 41, 'l'))}});
  EXPECT_EQ(file.bytes().size(), size);
  return file.bytes();
}

int32_t trim_to(const std::string& destination) {
  java = {};
  java.name = "!" + destination;
  const int32_t result = xlogTrimLog(nullptr);
  EXPECT_EQ(java.references, 0);
  return result;
}

TEST(Trim, AFileThatIsSmallEnoughIsCopied) {
  const std::string destination = console_path() + "copy.log", log = log_of_size(XLOG_TRIM_SIZE);
  write_file(data_path("wexolog.log"), log);
  EXPECT_EQ(trim_to(destination), 77) << "what the bridge says of the result";
  EXPECT_EQ(java.result, 0);
  EXPECT_EQ(java.message, "");
  EXPECT_TRUE(read_file(destination) == log);
  EXPECT_EQ(mode_of(destination), 0600u);
  chmod(destination.c_str(), 0640);
  trim_to(destination);
  EXPECT_EQ(mode_of(destination), 0640u) << "a file that is there stays as its owner wants it";
}

TEST(Trim, ALargerOneLosesItsOldestEventsInTheCopy) {
  const std::string destination = console_path() + "copy_of_wexocalt.log", log = log_of_size(XLOG_TRIM_SIZE + 1);
  write_file(data_path("wexocalt.log"), log);
  trim_to(destination);
  EXPECT_EQ(java.result, 0) << java.message;
  EXPECT_TRUE(read_file(data_path("wexocalt.log")) == log) << "the log itself stays";
  EXPECT_FALSE(exists(data_path("wexotsd.log")));
  EXPECT_LE(read_file(destination).size(), XLOG_TRIM_SIZE);
  EXPECT_EQ(mode_of(destination), 0600u);
  const auto kept = names("!" + destination);
  // 138 of 10,000 bytes and a last one that fills up: the oldest is replaced by an event behind the Log Info Log.
  ASSERT_EQ(kept.size(), 1u + 1u + 137u + 1u);
  EXPECT_EQ(kept[138], "pruned logs");
}

TEST(Trim, Failures) {
  const std::string destination = console_path() + "copy.log";
  trim_to(destination);
  EXPECT_EQ(java.message, "Error copying log file") << "there is no log";
  EXPECT_FALSE(exists(destination));
  EXPECT_EQ(java.result, 2);
  EXPECT_EQ(java.comprc, ENOENT);

  write_file(data_path("wexolog.log"), log_of_size(XLOG_TRIM_SIZE + 10000));
  trim_to(console_path() + "no/such/directory");
  EXPECT_EQ(java.message, "Error copying log file to destination");
  EXPECT_FALSE(exists(data_path("wexotsd.log")));

  std::string bytes = log_of_size(XLOG_TRIM_SIZE + 10000);
  const uint32_t small = 5000;
  bytes.replace(offsetof(xlog_file_header, file_size), 4, reinterpret_cast<const char*>(&small), 4);
  write_file(data_path("wexolog.log"), bytes);
  trim_to(destination);
  EXPECT_EQ(java.result, 0);
  EXPECT_FALSE(exists(destination)) << "more to go than there is";
  EXPECT_TRUE(exists(data_path("wexotsd.log")));
  EXPECT_EQ(mode_of(data_path("wexotsd.log")), 0600u);

  bytes = log_of_size(XLOG_TRIM_SIZE + 10000);
  bytes.replace(XLOG_FILE_HEADER_SIZE, 4, std::string(4, '\0'));
  write_file(data_path("wexolog.log"), bytes);
  trim_to(destination);
  EXPECT_EQ(java.message, "Error reducing log file: xlog_delete_logs()");
  EXPECT_FALSE(exists(destination));

  java = {};
  java.status = 5;
  xlogTrimLog(nullptr);
  EXPECT_EQ(java.result, 5) << "an argument that cannot be had";
}

}  // namespace
