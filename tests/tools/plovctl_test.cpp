// plovctl from its command line to its output and exit code.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>

#include "support/files.h"
#include "support/log_file.h"
#include "support/worker.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct Outcome {
  int exit;
  std::string out;  // with what went to standard error
  std::vector<json> objects() const {
    std::vector<json> lines;
    for (size_t at = 0, end; (end = out.find('\n', at)) != std::string::npos; at = end + 1)
      lines.push_back(json::parse(out.substr(at, end - at)));
    return lines;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const json& object : objects()) all.push_back(object.at("name"));
    return all;
  }
};

Outcome plovctl(const std::string& arguments) {
  test::Process process(test::own_program("plovctl") + " 2>&1 " + arguments);
  const std::string out = process.rest();
  return {process.wait(), out};
}

Outcome show(const std::string& arguments) {
  return plovctl("show --json " + arguments);
}

std::string log_path() {
  return test::data_path("wexolog.log");
}

void write_log(const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(log_path()).parent_path());
  test::write_file(log_path(), bytes);
}

TEST(Plovctl, ShowsWhatItRecorded) {
  test::write_file("big", std::string(70000, 'z'));
  const Outcome recorded = plovctl(
      "record --json --class 0x0A --type 7 --user 0xBEEF --name 'twelve chars' --error --standard --modify "
      "--block 0x21=text --block-hex 34=00FF1b --block-file 0x20=big --block 0x21=again 2>/dev/null");
  ASSERT_EQ(recorded.exit, 0) << recorded.out;
  const json stamp = recorded.objects().back();
  EXPECT_EQ(stamp.at("class"), 0xE4) << "class 0x0A is stored as 0xE4";

  const Outcome shown = show("--hex --class 0xE4");
  ASSERT_EQ(shown.exit, 0) << shown.out;
  const json event = shown.objects().at(0);
  for (const char* key : {"class", "type", "user", "name", "seconds", "hundredths", "time"})
    EXPECT_EQ(event.at(key), stamp.at(key)) << key;
  EXPECT_EQ(event.at("error"), true);
  EXPECT_EQ(event.at("analysis"), false);
  std::vector<int> ids;
  for (const json& block : event.at("blocks")) ids.push_back(block.at("id"));
  EXPECT_THAT(ids, ElementsAre(0xF5, 0x21, 34, 0x20, 0x21, 0x01, 0x00));
  EXPECT_EQ(event["blocks"][1]["base64"], "dGV4dA==");
  EXPECT_EQ(event["blocks"][2]["hex"], "00ff1b");
  EXPECT_EQ(event["blocks"][3]["size"], 0xFF00);
  EXPECT_EQ(event["blocks"][5]["decoded"]["process"], "plovctl");
  EXPECT_EQ(plovctl("check").exit, 0);
  EXPECT_THAT(plovctl("show --hex -n 1").out, HasSubstr("process: plovctl"));
}

TEST(Plovctl, RecordsWhateverCanBeRead) {
  const auto record = [](const std::string& blocks) { return plovctl("record --class 3 --type 1 " + blocks); };
  EXPECT_EQ(record("--block-file 1=/proc/self/status --block-file 2=- < /dev/zero").exit, 0);
  const json blocks = show("-n 1").objects().at(0).at("blocks");
  EXPECT_GT(blocks.at(1).at("size"), 0) << "a file whose size is told as 0";
  EXPECT_EQ(blocks.at(2).at("size"), 0xFF00);
  EXPECT_EQ(record("--block-file 1=- < .").exit, 1);
  EXPECT_EQ(record("--block-file 1=- <&-").exit, 1);
  EXPECT_EQ(record("--block-file 1=- --block-file 2=- < /dev/zero").exit, 2);
}

TEST(Plovctl, ListsFilesInEachForm) {
  test::write_file("b", "12345");
  test::write_file("a\n", "");
  for (const char* form : {"--packed", "--file ./list"})
    EXPECT_THAT(plovctl("ls --json '[ab]*' " + std::string(form)).names(), testing::UnorderedElementsAre("a\n", "b"));
  EXPECT_EQ(plovctl("ls --count").out, "3\n");
  EXPECT_THAT(plovctl("ls B").out, testing::ContainsRegex("^-rw.* 5 .* b\n$"));
  EXPECT_EQ(plovctl("ls --json --file ./list b").objects().at(0).at("size"), "5");
  EXPECT_THAT(plovctl("ls --packed 'a*'").out, "a\\n\n");
  EXPECT_THAT(plovctl("ls none/").out, HasSubstr("comprc 549 (the directory asked for cannot be read)"));
}

TEST(Plovctl, SelectsByEverythingItOffers) {
  test::LogFile file;
  const auto add = [&](uint8_t c, uint8_t type, uint16_t user, uint32_t seconds, const char* name, const char* text) {
    file.add({.eventid = {c, type, user},
              .timestamp = {seconds, 50},
              .name = name,
              .blocks = {test::stored(0x10, text), test::encoded(0x11, "second")}});
  };
  add(3, 1, 1, 1000, "one", "alpha");
  add(3, 2, 1, 2000, "two", "beta");
  add(4, 1, 1, 3000, "three", "alphabet");
  add(4, 2, 9, 4000, "four", "gamma");
  write_log(file.bytes());

  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"", {"four", "three", "two", "one", "Log Info Log"}},
      {"-n 2", {"four", "three"}},
      {"-n 2 --oldest-first", {"three", "four"}},
      {"--class 3", {"two", "one"}},
      {"--class 3 --class 4 -n 3", {"four", "three", "two"}},
      {"--type 1", {"three", "one"}},
      {"--class 4 --type 1", {"three"}},
      {"--class 4 --type 2 --user 9", {"four"}},
      {"--class 4 --type 2 --user 8", {}},
      {"--user 9", {"four"}},
      {"--name 't*'", {"three", "two"}},
      {"--name 't*' -n 1", {"three"}},
      {"--since @2000.50 --until @3000.50", {"three", "two"}},
      {"--since @2000.51 --until @3000.49", {}},
      {"--until '1970-01-01 00:20' --utc --class 3", {"one"}},
      {"--grep alpha", {"three", "one"}},
      {"--grep second --block 0x10 --type 2", {"four", "two"}},
      {"--pattern 0x10:61", {"three", "one"}},
      {"--pattern 0x10:0A00/0F00", {}},
      {"--pattern 0x10:00/9e --pattern 0x11:73", {"three", "one"}},
      {"--class 77", {}},
  };
  for (const auto& [arguments, names] : cases) EXPECT_EQ(show(arguments).names(), names) << arguments;
  for (const char* ids : {"--block 0x11 --block 0x10", "--block 0x11 --block 0x10 --grep gamma"}) {
    const json kept = show(std::string("-n 1 ") + ids).objects().at(0);
    ASSERT_EQ(kept["blocks"].size(), 2u) << ids;
    EXPECT_EQ(kept["blocks"][0]["id"], 0x10) << "in the log's order: " << ids;
  }
  EXPECT_EQ(show("--class 77 --exit-empty").exit, 4);
  EXPECT_EQ(show("--class 77").exit, 0);
}

TEST(Plovctl, ShowsControlCharactersEscaped) {
  ASSERT_EQ(
      plovctl("record --class 3 --type 1 --name \"$(printf 'a\\033[2Jb\\n')\" --block-hex 0x10=1b5b33316d61").exit, 0);
  for (const char* verb : {"show --color never", "show --hex --color never", "dump", "info"}) {
    const Outcome run = plovctl(verb);
    EXPECT_EQ(run.exit, 0) << run.out;
    EXPECT_THAT(run.out, HasSubstr("\\x1B[2Jb")) << verb;
    for (char c : run.out) ASSERT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << verb;
  }
  EXPECT_THAT(plovctl("show --color always").out, HasSubstr("\033["));
  EXPECT_THAT(plovctl("show").out, Not(HasSubstr("\033["))) << "not a terminal";
}

TEST(Plovctl, LooksAtADamagedLogWithoutReplacingIt) {
  test::LogFile file;
  file.add({.name = "before"});
  const uint32_t damaged = file.add({.name = "damaged"});
  file.add({.name = "behind"});
  file.info(damaged).total_log_size = 1;
  write_log(file.bytes());

  const Outcome shown = plovctl("show --json 2>/dev/null");
  EXPECT_EQ(shown.exit, 3);
  EXPECT_THAT(shown.names(), ElementsAre("behind", "before", "Log Info Log"));
  const std::string place = "offset " + std::to_string(damaged) + ", total_log_size: found 1 ";
  const Outcome checked = plovctl("check");
  EXPECT_EQ(checked.exit, 3);
  EXPECT_THAT(checked.out, HasSubstr(place));
  EXPECT_EQ(plovctl("check " + log_path() + " /nonexistent").exit, 3);
  EXPECT_EQ(plovctl("check /nonexistent").exit, 1);
  EXPECT_EQ(plovctl("dump").exit, 3);
  EXPECT_EQ(plovctl("info --json 2>/dev/null").objects().at(0).at("damaged"), true);
  EXPECT_EQ(test::read_file(log_path()), file.bytes());
  test::write_file("short", "x");
  for (const char* verb : {"check", "dump", "info", "show --file", "dump --json"})
    EXPECT_EQ(plovctl(std::string(verb) + " ./short").exit, 3) << verb;
}

TEST(Plovctl, SalvagesWhatABrokenOffPruneLeft) {
  test::LogFile file;
  file.add({.timestamp = {1000, 150}, .name = "stays"});
  file.header.file_flags |= XLOG_FILE_PRUNE_IN_PROGRESS;
  file.header.file_size = XLOG_FILE_HEADER_SIZE;
  write_log(file.bytes() + "not a log");
  const Outcome shown = plovctl("show --json 2>/dev/null");
  EXPECT_EQ(shown.exit, 3);
  ASSERT_THAT(shown.names(), ElementsAre("stays", "Log Info Log"));
  EXPECT_EQ(shown.objects().at(0).at("seconds"), 1001);
  EXPECT_EQ(shown.objects().at(0).at("hundredths"), 50);
  EXPECT_EQ(plovctl("info").exit, 3);
  EXPECT_EQ(test::read_file(log_path()), file.bytes() + "not a log");
}

TEST(Plovctl, FollowsIntoDamage) {
  test::LogFile file;
  file.add({.name = "seen"});
  write_log(file.bytes());
  FILE* pipe = popen(PLOV_BINARY_DIR "/plovctl show -f -n 1 --json --timeout 20 2>/dev/null", "r");
  ASSERT_TRUE(pipe);
  char line[4096];
  ASSERT_TRUE(fgets(line, sizeof line, pipe));
  file.add({.name = "new"});
  file.header.last_log_offset = 1;
  test::write_file("damaged", file.bytes());
  std::filesystem::rename("damaged", log_path());  // never seen half written
  ASSERT_TRUE(fgets(line, sizeof line, pipe));
  EXPECT_EQ(json::parse(line).at("name"), "new");
  EXPECT_FALSE(fgets(line, sizeof line, pipe));
  EXPECT_EQ(WEXITSTATUS(pclose(pipe)), 3);
}

TEST(Plovctl, FollowsUntilEnoughHasCome) {
  ASSERT_EQ(plovctl("record --class 3 --type 1 --name old").exit, 0);
  auto follower = std::async(std::launch::async,
                             [] { return show("-f -n 0 --class 3 --until-match 2 --timeout 20 --exit-empty"); });
  // Events go on until the follower has seen enough, however late it started.
  while (follower.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
    plovctl("record --class 4 --type 1 --name other");
    plovctl("record --class 3 --type 1 --name new");
  }
  const Outcome followed = follower.get();
  EXPECT_EQ(followed.exit, 0);
  EXPECT_THAT(followed.names(), ElementsAre("new", "new"));
  EXPECT_EQ(show("-f -n 0 --class 3 --until-match 1 --timeout 0.3 --exit-empty").exit, 4);
}

TEST(Plovctl, LaysOutAConsoleDirectoryThatWorks) {
  const std::string root = test::console_path() + "site";
  ASSERT_EQ(plovctl("init " + root).exit, 0);
  EXPECT_EQ(test::read_file(root + "/ywkddfc.trm"), test::read_file(PLOV_SOURCE_DIR "/etc/ywkddfc.trm"));
  EXPECT_EQ(test::read_file(root + "/wexoinit.trm"), test::read_file(PLOV_SOURCE_DIR "/etc/wexoinit.trm"));
  EXPECT_EQ(test::read_file(root + "/config/ywkzsim.dat"),
            test::read_file(test::console_path() + "config/ywkzsim.dat"));
  EXPECT_EQ(plovctl("record --root " + root + " --class 3 --type 1 --file e4").exit, 0);
  EXPECT_TRUE(test::exists(root + "/data/wexoe4.log"));
  EXPECT_FALSE(test::exists(test::data_path("wexoe4.log")));

  test::write_file(root + "/wexoinit.trm", "mine");
  EXPECT_EQ(plovctl("init " + root).exit, 1);
  EXPECT_EQ(test::read_file(root + "/wexoinit.trm"), "mine");
  test::write_file(root + "/config/ywkzspr.dat", "kept");
  EXPECT_EQ(plovctl("init --force " + root).exit, 0);
  EXPECT_EQ(test::read_file(root + "/config/ywkzspr.dat"), "kept");
  EXPECT_NE(test::read_file(root + "/wexoinit.trm"), "mine");
  EXPECT_THAT(plovctl("init /tmp/" + std::string(120, 'x')).out, HasSubstr("the path table has room for 94"));
  EXPECT_FALSE(test::exists("/tmp/" + std::string(120, 'x')));
}

TEST(Plovctl, BuildsReadsAndChangesTheMap) {
  test::write_file("map.txt",
                   "5 4 data 0x01020304 # a number\n6 8 persistent \"a # \\\"b\\x00\"\r\n7 3 permanent hex:00ffee\n"
                   "\n  # nothing\n8 300 zero\n3999 2 zero\n4000 2 data 7\n");
  ASSERT_EQ(plovctl("sim build map.txt --out " + test::console_path() + "config").exit, 0);
  EXPECT_THAT(plovctl("sim list").out,
              AllOf(HasSubstr("5     4      data                16909060\n6     8      persistent          "),
                    HasSubstr("7     3      permanent           hex:00ffee\n8     300    zero                hex:0000"),
                    HasSubstr("00\n3999  2      zero                0\n4000  2      data                7\n")));
  EXPECT_EQ(plovctl("sim list --json --as text").objects()[1]["value"], R"("a # \"b")");
  EXPECT_EQ(plovctl("sim get 7").out, "hex:00ffee\n");
  EXPECT_EQ(plovctl("sim get 4000 --as hex").out, "hex:0700\n");
  EXPECT_EQ(plovctl("sim size 8 --json").objects()[0]["size"], 300);
  EXPECT_EQ(plovctl("sim set 6 '\"changed\"'").exit, 0);
  EXPECT_EQ(test::read_file(test::console_path() + "config/ywkzspr.dat"),
            std::string("\0\0\6\0\10\0changed\0\7\0\3\0\0\xff\xee", 21));
  EXPECT_EQ(plovctl("sim lock 5").exit, 0);
  EXPECT_THAT(plovctl("sim lock 5").out, HasSubstr("comprc 52 (the field is locked already)"));
  EXPECT_EQ(plovctl("sim set 5 9").exit, 1);
  EXPECT_EQ(plovctl("sim get 5").out, "16909060  (locked)\n");
  EXPECT_EQ(plovctl("sim set 5 9 --override").exit, 0);
  EXPECT_EQ(plovctl("sim unlock 5").exit, 1);
  EXPECT_THAT(plovctl("sim get 9999").out, HasSubstr("comprc 23"));
  EXPECT_EQ(plovctl("sim set 5 0x100000000").exit, 2);

  const std::pair<const char*, const char*> mistakes[] = {
      {"5 4 data 1\n5 4 zero", "line 2: field 5 stands in line 1 already"},
      {"1500 4 zero", "Java"},
      {"5 0 zero", "size"},
      {"0 4 zero", "id"},
      {"5 4 keep 1", "place"},
      {"5 4 zero 1", "no value"},
      {"5 4 data \"12345\"", "at most the field's size"},
      {"5 1 data 256", "at most the field's size"},
      {"8093 1 zero", "larger than an array may have"},
      {"5 32767 zero\n6 32767 zero", "line 2: the values are larger"}};
  for (const auto& [source, complaint] : mistakes) {
    test::write_file("map.txt", source);
    EXPECT_THAT(plovctl("sim build map.txt").out, HasSubstr(complaint)) << source;
  }
  EXPECT_FALSE(test::exists("ywkzsim.dat"));
}

TEST(Plovctl, SaysWhatWentWrongAndEndsAccordingly) {
  const std::tuple<const char*, int, const char*> cases[] = {
      {"", 2, "subcommand"},
      {"sim build /", 1, "/: Is a directory"},
      {"show --since whenever", 2, "--since \"whenever\""},
      {"show --timeout 3", 2, "--follow"},
      {"record --class 256 --type 1", 2, "from 0 to 0xFF"},
      {"record --class 1 --type 1 --block 5", 2, "ID="},
      {"record --class 1 --type 1 --name 1234567890123", 2, "at most 12 bytes"},
      {"record --class 1 --type 1 --file toolong", 2, "more than 4 characters"},
      {"shwo", 2, "plovctl: no verb \"shwo\""},
      {"show --nonsense", 2, "plovctl: show: "},
      {"show -n 010x", 2, "-n \"010x\""},
      {"show --since ''", 2, "--since: the value is empty"},
      {"init ''", 2, "empty"},
      {"check ''", 2, "empty"},
      {"show --file ./", 2, "no file name"},
      {"dump a --file e4", 2, "excludes"},
      {"trace --level Q", 2, "T, D and F"},
      {"show", 1, "No such file"},  // looking makes no log
      {"path nowhere.xyz", 1, "no entry of the path table matches"},
      {"path wexolog.log", 0, "entry 2 \"wexo*.log "},
      {"explain 0x1801", 0, "XLOG_RECORD_TOO_LARGE"},
      {"explain XDFC_DISK_FULL", 0, "xdfc 1033"},
      {"explain sysrc 8", 0, "a failed system service"},
      {"explain 0x7777", 1, "no such code"},
      {"--root /nonexistent show", 1, "No such file"},
  };
  for (const auto& [arguments, exit, text] : cases) {
    const Outcome run = plovctl(arguments);
    EXPECT_EQ(run.exit, exit) << arguments;
    EXPECT_THAT(run.out, HasSubstr(text)) << arguments;
  }
  EXPECT_FALSE(test::exists(log_path()));
  // The event is larger than one log may be: refused, explained, recorded by the library's own error log.
  test::write_file(test::console_path() + "wexoinit.trm", "10 a\n10 b\n10 c\n1 d\n64 e\n10 f\n1 g\n");
  test::write_file("big", std::string(60000, 'x'));
  const Outcome refused = plovctl("record --class 3 --type 1 --block-file 0x10=big");
  EXPECT_EQ(refused.exit, 1);
  EXPECT_THAT(refused.out, testing::AllOf(HasSubstr("xlog_record"), HasSubstr("comprc 0x1801"),
                                          HasSubstr("line 4 of wexoinit.trm")));
}

TEST(Plovctl, RecordsAnInternalErrorAndShowsItReadably) {
  const Outcome recorded = plovctl("microcode --json --type 1 --user 9 --code 0x4902 --extension 0xAB --name jam");
  ASSERT_EQ(recorded.exit, 0) << recorded.out;
  EXPECT_EQ(show("-n 1").objects().at(0).at("reference_code"), "E4014902");
  EXPECT_EQ(show("-n 1").objects().at(0).at("extension"), "ab");
  EXPECT_THAT(plovctl("show -n 1").out, HasSubstr(" refcode E4014902 ext ab\n"));
  EXPECT_THAT(plovctl("show -n 1 --hex").out,
              testing::ContainsRegex("\n    20[^\n]+XLOG   T -> xlog_microcode_log2\n"));
}

TEST(Plovctl, ChangesOneEventInPlaceAndTakesASnapshot) {
  ASSERT_EQ(plovctl("record --class 7 --type 1 --user 2 --modify").exit, 0);
  const json event = show("-n 1").objects().at(0);
  const auto which = [&](int user) {
    char time[32];
    snprintf(time, sizeof time, "@%u.%02u", event.at("seconds").get<unsigned>(),
             event.at("hundredths").get<unsigned>());
    return " --class 7 --type 1 --user " + std::to_string(user) + " --time " + time;
  };
  EXPECT_EQ(plovctl("update --text 'new text'" + which(2)).exit, 0);
  EXPECT_EQ(show("-n 1").objects().at(0)["blocks"][1]["base64"].get<std::string>().substr(0, 10), "bmV3IHRleH");
  EXPECT_THAT(plovctl("update --text " + std::string(65, 'x') + which(2)).out, HasSubstr("overwrite what follows"));
  EXPECT_EQ(plovctl("update --text x" + which(3)).exit, 1);
  EXPECT_THAT(plovctl("snapshot").out, HasSubstr("cduffdc_wexolog.log, ")) << "though there is no log e4";
  EXPECT_EQ(plovctl("delete" + which(2)).exit, 0);
  EXPECT_THAT(show("--class 7").out, IsEmpty());
}

TEST(Plovctl, SpawnsPrograms) {
  const auto spawn = [](const std::string& rest) { return plovctl("spawn --json " + rest); };
  const json started = spawn("-- true").objects().at(0);
  EXPECT_GT(started.at("pid"), 0);
  EXPECT_EQ(started.at("ended"), false);
  const json ended = spawn("--wait 60 -- sh -c 'exit 3'").objects().at(0);
  EXPECT_EQ(ended.at("exit_code"), 3);
  EXPECT_EQ(ended.at("status"), 0x300);
  EXPECT_THAT(plovctl("spawn --wait 60 -- sh -c 'kill -PIPE $$'").out,
              HasSubstr(" ended by SIGPIPE (raw status 0x000D)"));
  const Outcome absent = plovctl("spawn -- nonesuch --wait");
  EXPECT_EQ(absent.exit, 1);
  EXPECT_THAT(absent.out, testing::AllOf(HasSubstr("nonesuch: No such file"), HasSubstr("comprc 0x0100")));
  const Outcome running = spawn("--wait 0 -- sleep 1 2>/dev/null");
  EXPECT_EQ(running.exit, 1);
  EXPECT_EQ(running.objects().at(0).at("ended"), false);
}

TEST(Plovctl, AsksForARestartButNeverRunsTheCommand) {
  // Its own `system` stands before the C library's. Not a step further without it.
  ASSERT_THAT(test::Process("nm -D --defined-only " + test::own_program("plovctl")).rest(), HasSubstr(" T system\n"));
  setenv("PATH", "/nonexistent", 1);
  EXPECT_THAT(plovctl("restart").out, HasSubstr("restart refused: it stops the whole machine"));
  const Outcome asked = plovctl("restart --confirm --type halt");
  EXPECT_EQ(asked.exit, 1);
  EXPECT_THAT(asked.out, testing::AllOf(HasSubstr("\"halt\" is left to you and was not run"), HasSubstr("0x5085")));
  unlink((test::console_path() + "wexoinit.trm").c_str());
  EXPECT_THAT(plovctl("restart --confirm").out, HasSubstr("this is no console directory"));
}

TEST(Plovctl, ShowsTheTraceOfItsCalls) {
  ASSERT_EQ(plovctl("record --class 3 --type 1 --name traced").exit, 0);
  const Outcome run = plovctl("trace -n 5000 --tag XLOG --level F --grep 'event name = traced' --json");
  ASSERT_EQ(run.exit, 0) << run.out;
  EXPECT_EQ(run.objects().at(0).at("text"), "event name = traced");
  EXPECT_THAT(plovctl("trace -n 5000 --level T --grep 'event name'").out, IsEmpty());
}

TEST(Plovctl, GoesBackThroughTheCopies) {
  test::write_file(test::console_path() + "wexoinit.trm", "9 x\n9 x\n9 x\n9 x\n0 x\n2 x\n20 x\n");
  test::LogFile log;
  log.header.max_file_size = 2;
  log.add({.name = "event 0"});
  test::write_file("noise", test::noise(200));
  write_log(log.bytes());
  // Equal lengths, so that only what an event is tells the copies apart.
  for (int i = 1; i < 40; ++i)
    ASSERT_EQ(
        plovctl("record --class 1 --type 1 --block-file 0x10=noise --name 'event " + std::to_string(i) + "'").exit, 0);
  ASSERT_TRUE(test::exists(test::data_path("wexocom2.log")));
  std::vector<std::string> expected;
  for (int i = 40; i-- > 0;) expected.push_back("event " + std::to_string(i));
  EXPECT_THAT(show("--class 1").names(), testing::SizeIs(testing::Lt(20u)));
  EXPECT_EQ(show("--all --class 1").names(), expected);
  EXPECT_EQ(plovctl("show --all --follow").exit, 2);
}

}  // namespace
