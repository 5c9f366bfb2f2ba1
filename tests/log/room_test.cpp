// Making room in a full log.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>

#include "support/files.h"
#include "support/log_calls.h"
#include "support/traced.h"
#include "support/worker.h"

using namespace test;

extern "C" int clock_nanosleep(clockid_t, int, const struct timespec*, struct timespec*) {
  return 0;
}

namespace {

const std::string kLog = data_path("wexolog.log");

// Short-name, main and "e4" file of `units`; class 0x10 keeps 3 of a type, 0x11 has priority 1, 0x12 keeps 5 with
// priority 3.
void configure(unsigned units, unsigned copies, unsigned keep11 = 1000) {
  const std::string size = std::to_string(units) + " x\n";
  write_file(console_path() + "wexoinit.trm", size + size + size + "9 x\n0 x\n1000 x\n" + std::to_string(copies) +
                                                  " x\nC 10\n * 3\nC 11\n * " + std::to_string(keep11) +
                                                  " 1\nC 12\n * 5 3\n");
  mkdir(data_path("").c_str(), 0700);
}

// 100 logs of classes 0x10 to 0x13 in turn, in a file of 10 units that has 500 bytes left.
LogFile full_file(LogFile::Kind kind = LogFile::kMain) {
  LogFile file(kind);
  file.header.max_file_size = 10;
  for (uint16_t i = 0; i < 100; ++i)
    file.add({.eventid = {static_cast<uint8_t>(0x10 + i % 4), 1, i},
              .timestamp = {1000u + i, 0},
              .blocks = {stored(0x20, noise(kind == LogFile::kMain ? 145 + i % 6 : 141))}});
  return file;
}

std::map<int, int> count_by_class(const std::vector<ReadLog>& logs) {
  std::map<int, int> counts;
  for (const ReadLog& log : logs) ++counts[log.eventid.classes];
  return counts;
}

TEST(Room, TheFinishedFileIsThisOne) {
  configure(10, 2);
  const LogFile before = full_file();
  write_file(kLog, before.bytes());
  setenv("TZ", "XXX-2", 1);
  ASSERT_EQ(record({.classes = 0x13, .user = 100, .blocks = {{0x20, noise(500)}}}).sysrc, 0);
  EXPECT_EQ(check_log(kLog), 0);

  // Gone are the logs beyond their keep counts (0x10: all but three, 0x12: all but five), then the oldest ones of
  // priority 0 (0x10, 0x13) until half of the file's size is free. 0x11 (priority 1) stays whole.
  const std::string after = read_file(kLog);
  xlog_log_info logcomp;
  const size_t at = after.find(std::string("logcomp\0\0\0\0\0", 12));
  ASSERT_NE(at, std::string::npos);
  memcpy(&logcomp, &after[at - 13], sizeof logcomp);
  EXPECT_NEAR(logcomp.timestamp.seconds, static_cast<double>(time(nullptr)), 5);
  uint32_t freed = 0;
  std::vector<bool> goes(100);
  for (unsigned i = 0; i < 100; ++i) goes[i] = (i % 4 == 0 && i < 88) || (i % 4 == 2 && i < 80);
  const auto size_of = [](unsigned i) { return 40 + 146 + i % 6; };
  for (unsigned i = 0; i < 100; ++i) freed += goes[i] ? size_of(i) : 0;
  for (unsigned i = 0; i < 100 && freed < 10240; ++i)
    if (!goes[i] && (i % 4 == 0 || i % 4 == 3)) goes[i] = true, freed += size_of(i);
  LogFile expected;
  expected.header = LogFile().header;
  expected.header.max_file_size = 10;
  const std::string two_hours("\0\0\x78\0", 4);
  for (unsigned i = 0; i < 100; ++i) {
    if (goes[i]) continue;
    if (i > 0 && goes[i - 1])
      expected.add({.eventid = {255, 1, 0},
                    .timestamp = {1000 + i - 1, 0},
                    .name = "pruned logs",
                    .blocks = {stored(XLOG_UTCOFFSET_BLOCK_ID, two_hours)}});
    expected.add({.eventid = {static_cast<uint8_t>(0x10 + i % 4), 1, static_cast<uint16_t>(i)},
                  .timestamp = {1000 + i, 0},
                  .blocks = {stored(0x20, noise(145 + i % 6))}});
  }
  expected.add({.eventid = {0, 0, 797},
                .timestamp = logcomp.timestamp,
                .name = "logcomp",
                .blocks = {stored(XLOG_UTCOFFSET_BLOCK_ID, two_hours), stored(0xF1, std::string("\1\0\0\0", 4)),
                           stored(0x03, std::string(1, '\0'))}});
  EXPECT_EQ(after.substr(1040, expected.logs.size()), expected.logs);

  // The copy is the file as it was, but for line 1 of the configuration in front.
  std::string copy = read_file(data_path("wexocom0.log"));
  EXPECT_EQ(copy.substr(0, 2), std::string("\x0A\0", 2));
  EXPECT_EQ(copy, before.bytes());
  EXPECT_EQ(mode_of(data_path("wexocom0.log")) | mode_of(kLog), 0600u);
  EXPECT_FALSE(exists(kLog + ".new") || exists(data_path("wexocom0.log.init")));
  EXPECT_EQ(read_all("!wexocom0.log").size(), 101u);
}

TEST(Room, ALogBehindALinkIsMadeRoomInWhereItLies) {
  configure(10, 0);
  write_file(kLog, full_file().bytes());
  const Event event = {.classes = 0x13, .blocks = {{0x20, noise(500)}}};
  ASSERT_EQ(record(event).sysrc, 0);
  const std::string beside = read_file(kLog);
  const std::string elsewhere = console_path() + "elsewhere";
  write_file(elsewhere, full_file().bytes());
  remove(kLog.c_str());
  ASSERT_EQ(symlink(elsewhere.c_str(), kLog.c_str()), 0);
  ASSERT_EQ(record(event).sysrc, 0);
  EXPECT_EQ(check_log(elsewhere), 0);
  const std::string in_place = read_file(elsewhere);
  ASSERT_EQ(in_place.size(), beside.size()) << "shortened to its end";
  EXPECT_EQ(in_place.substr(0, 9000), beside.substr(0, 9000));
  EXPECT_FALSE(exists(data_path("wexocom0.log"))) << "the configuration has no copies";
}

TEST(Room, TheE4FileLosesItsOldestThirdWithoutACopy) {
  configure(10, 2);
  write_file(data_path("wexoe4.log"), full_file(LogFile::kE4).bytes());
  ASSERT_EQ(record({.target = "e4", .blocks = {{0x20, noise(2000)}}}).sysrc, 0);
  EXPECT_EQ(check_log(data_path("wexoe4.log")), 0);
  // 38 logs of 182 bytes pass 6826; behind them the notice, the others, "logcomp" and the event.
  const auto logs = read_all("e4");
  EXPECT_EQ(logs.size(), 1 + 62 + 2u);
  EXPECT_EQ(logs.back().name.substr(0, 11), "pruned logs");
  EXPECT_EQ(logs[logs.size() - 2].eventid.user, 38);
  EXPECT_FALSE(exists(data_path("wexocom0.log")));
}

TEST(Room, AnEventIsRefusedOnlyWhenNothingMayGo) {
  write_file(console_path() + "wexoinit.trm",
             "2 x\n2 x\n2 x\n9 x\n0 x\n9 x\n1 x\nC FF\n * 9 3\nC 33\n * 9 3\nC 00\n * 9 1\n");
  ASSERT_EQ(record({.blocks = {{1, noise(2000)}}}).sysrc, 0);
  EXPECT_EQ(record({.blocks = {{1, noise(2000)}}}), std::make_pair(2, +XLOG_RECORD_NO_ROOM));
  EXPECT_EQ(check_log(kLog), 0);
  EXPECT_EQ(count_by_class(read_all())[0x33], 1);
}

TEST(Room, DamageHasItsCodeAndIsSavedUnmoved) {
  configure(10, 1);
  struct Case {
    const char* what;
    void (*damage)(LogFile&, xlog_log_info&);  // the info of the second log of class 0x13
    uint32_t code;
  };
  const Case cases[] = {
      {"class start", [](LogFile& f, xlog_log_info&) { f.header.class_last_log[7] = 0x7FFFFFFF; }, 0x4201},
      {"class start in the header", [](LogFile& f, xlog_log_info&) { f.header.class_last_log[7] = 3; }, 0x4201},
      {"link forward", [](LogFile&, xlog_log_info& i) { i.prev_class_log_offset = 0x5000; }, 0x4202},
      {"link into another class", [](LogFile&, xlog_log_info& i) { i.prev_class_log_offset = 1104; }, 0x4202},
      {"no length", [](LogFile&, xlog_log_info& i) { i.total_log_size = 0; }, 0x4101},
      {"shorter than its header", [](LogFile&, xlog_log_info& i) { i.total_log_size = 39; }, 0x4101},
      {"no length, nothing to mark",
       [](LogFile& f, xlog_log_info& i) { i.total_log_size = 0, f.header.max_file_size = 4; }, 0x4100},
      {"length beyond the end", [](LogFile&, xlog_log_info& i) { i.total_log_size = 0x7000; }, 0x450F},
      {"the same, nothing to mark",
       [](LogFile& f, xlog_log_info& i) { i.total_log_size = 0x7000, f.header.max_file_size = 4; }, 0x4509},
      {"data cut off", [](LogFile& f, xlog_log_info&) { f.logs.resize(f.logs.size() - 60); }, 0x450B},
      {"header cut off", [](LogFile& f, xlog_log_info&) { f.logs.resize(f.logs.size() - 180); }, 0x4505}};
  for (const Case& c : cases) {
    LogFile file = full_file();
    uint32_t offset = file.header.class_last_log[0x13];
    while (file.info(offset).eventid.user != 7) offset = file.info(offset).prev_class_log_offset;
    c.damage(file, file.info(offset));
    write_file(kLog, file.bytes());
    EXPECT_EQ(record({.blocks = {{1, noise(600)}}}), std::make_pair(8, c.code)) << c.what;
    EXPECT_EQ(read_file(data_path("wexosave.log")).size(), file.bytes().size()) << c.what;
    EXPECT_FALSE(exists(kLog + ".new")) << c.what;
  }
  // A file whose mark is set, without an image: its newest log tells where it ends.
  LogFile broken_off = full_file();
  broken_off.header.file_flags |= XLOG_FILE_PRUNE_IN_PROGRESS;
  broken_off.header.file_size = 1040;
  write_file(kLog, broken_off.bytes());
  EXPECT_EQ(read_all().size(), 102u) << "and the event that tells of it";
  EXPECT_EQ(check_log(kLog), 0);
  // Or says that it ends where there is nothing any more.
  xlog_log_info& newest = broken_off.info(broken_off.header.last_log_offset);
  newest.total_log_size = 0x70000000;
  write_file(kLog, broken_off.bytes());
  EXPECT_EQ(record({}), std::make_pair(8, 0x4507u));
  broken_off.header.last_log_offset = 0x7FFFFF00;
  write_file(kLog, broken_off.bytes());
  EXPECT_EQ(record({}), std::make_pair(8, 0x4511u));
}

struct Slot {
  ino_t file;  // 0: none
  time_t time;
};

std::array<Slot, 4> slots() {
  std::array<Slot, 4> slots = {};
  for (size_t i = 0; i < slots.size(); ++i) {
    struct stat status;
    if (stat(data_path("wexocom" + std::to_string(i) + ".log").c_str(), &status) == 0)
      slots[i] = {status.st_ino, status.st_mtime};
  }
  return slots;
}

// Of three slots: one without a copy, else the second oldest, as all are younger than a day.
size_t next_slot(const std::array<Slot, 4>& slots) {
  std::array<size_t, 3> by_age = {0, 1, 2};
  for (const size_t i : by_age)
    if (slots[i].file == 0) return i;
  std::stable_sort(by_age.begin(), by_age.end(), [&](size_t a, size_t b) { return slots[a].time < slots[b].time; });
  return by_age[1];
}

TEST(Room, IsThereForEver) {
  configure(100, 3, 60);
  const char* const wanted = getenv("PLOV_ROOM_EVENTS");
  const unsigned events = wanted ? static_cast<unsigned>(atoi(wanted)) : 6000;
  const auto live = [] {
    struct stat status = {};
    stat(kLog.c_str(), &status);
    return status.st_ino;
  };
  unsigned rooms = 0;
  std::array<Slot, 4> before = {};
  for (unsigned number = 0; number < events;) {
    for (unsigned i = 0; i < 1000; ++i, ++number) {
      const ino_t file = live();
      const auto event_class = static_cast<uint8_t>(0x10 + number % 4);
      ASSERT_EQ(record({.classes = event_class,
                        .user = static_cast<uint16_t>(number),
                        .blocks = {{0x20, worker_bytes(1, 0, number).substr(0, 40 + number % 400)}}})
                    .sysrc,
                0)
          << number;
      if (file == 0 || live() == file) continue;
      ++rooms;
      const auto after = slots();
      for (size_t slot = 0; slot < after.size(); ++slot)
        ASSERT_EQ(after[slot].file != before[slot].file, slot == next_slot(before))
            << "slot " << slot << ", " << number;
      before = after;
    }
    ASSERT_EQ(check_log(kLog), 0) << number;
    ASSERT_LE(read_file(kLog).size(), 100 * 2048u);
    auto logs = read_all();
    std::erase_if(logs, [](const ReadLog& log) { return log.eventid.classes < 0x10 || log.eventid.classes == 0xFF; });
    ASSERT_GT(logs.size(), 150u);
    for (unsigned i = 0; i < 12; ++i) {
      ASSERT_EQ(logs[i].eventid.user, static_cast<uint16_t>(number - 1 - i));
      ASSERT_EQ(logs[i].blocks[1].bytes, worker_bytes(1, 0, number - 1 - i).substr(0, 40 + (number - 1 - i) % 400));
    }
    // Of each class the oldest went, and what has its keep count and goes late is all there.
    std::map<int, uint16_t> older;
    for (const ReadLog& log : logs) {
      const auto [next, first] = older.try_emplace(log.eventid.classes, log.eventid.user);
      ASSERT_EQ(log.eventid.user, next->second) << "a gap in class " << log.eventid.classes + 0 << ", " << number;
      next->second = static_cast<uint16_t>(log.eventid.user - 4);
    }
    auto counts = count_by_class(logs);
    ASSERT_GE(counts[0x11], 60);
    ASSERT_GE(counts[0x12], 5);
  }
  printf("room was made %u times\n", rooms);
  EXPECT_GE(rooms, events / 600);
  EXPECT_EQ(check_log(data_path("wexocom1.log")), 0);
}

TEST(FindCopy, GoesOnWhereTheLogWasCopied) {
  configure(10, 3);
  write_file(kLog, full_file().bytes());
  ASSERT_EQ(record({.classes = 0x12, .user = 100, .blocks = {{0x20, noise(500)}}}).sysrc, 0);
  auto err = std::make_unique<xlog_err_interface>();
  *err = {};
  ASSERT_EQ(xlog_open_file(err.get()), 0);
  const std::string live = read_file(kLog);
  const auto newest_before = static_cast<uint32_t>(live.find(std::string("logcomp\0", 8)) - 13 - (40 + 146 + 99 % 6));
  uint32_t offset = 0;
  int32_t found = 7;
  xlog_file_header header = {};
  const auto find = [&](const char* name, uint32_t at, int32_t reset) {
    EXPECT_EQ(xlog_find_comp_log(name, at, &offset, reset, &found, &header, err.get()), 0);
    return found;
  };
  EXPECT_EQ(find(nullptr, 0x7FFFFFF, 0), 0);
  EXPECT_EQ(find(nullptr, 1040, 0), 0) << "no copy ends with a log of that length";
  EXPECT_EQ(find("wexocom9.log", newest_before, 0), 0);
  ASSERT_EQ(find(nullptr, newest_before, 0), 1);
  EXPECT_EQ(offset, full_file().header.last_log_offset);
  EXPECT_EQ(header.file_size, full_file().header.file_size);
  EXPECT_EQ(find(nullptr, offset, 0), 0) << "used";
  EXPECT_EQ(find(nullptr, 0, 1), 0);
  EXPECT_EQ(find("wexocom0.log", offset, 0), 1) << "after a reset";
  EXPECT_EQ(find("wexocom0.log", offset, 0), 0);
  EXPECT_NE(traced().find("XLOG   D: found matching log in [wexocom0.log}"), std::string::npos);
  find(nullptr, 0, 1);
  EXPECT_EQ(xlog_close_file(err.get()), 0);
}

}  // namespace
