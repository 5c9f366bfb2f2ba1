// plovpced at work: real connections, a real log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <list>
#include <nlohmann/json.hpp>
#include <thread>

#include "support/child.h"
#include "support/daemon_client.h"
#include "support/files.h"
#include "support/log_calls.h"

namespace {

using nlohmann::json;
using test::Daemon;
using test::Peer;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr uid_t kNobody = 65534;

json table() {
  return json::parse(test::Process(test::own_program("plovpced") + " --table --json").rest());
}

// Starts one that must not start; what it says.
std::string refusal() {
  Daemon daemon;
  const std::string words = daemon.process.rest();
  EXPECT_EQ(daemon.process.wait(), 1) << words;
  return words;
}

void expect_answer(const Peer& peer, uint32_t code) {
  const auto answer = peer.answer();
  ASSERT_TRUE(answer) << "the daemon has closed";
  EXPECT_EQ(answer->length, sizeof *answer);
  EXPECT_EQ(answer->code, code);
  EXPECT_EQ(answer->pid, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(answer->tid, 77u);
}

std::vector<test::ReadLog> reports() {
  std::vector<test::ReadLog> all = test::read_all();
  std::erase_if(all, [](const test::ReadLog& log) { return log.eventid.classes != 0xE4; });
  return all;
}

TEST(Daemon, KnowsWhoIsAlive) {
  const Daemon daemon("--verbose");
  ASSERT_THAT(daemon.line(), HasSubstr("listens"));
  EXPECT_EQ(test::mode_of(test::socket_path()), 0600u);
  const Peer first;
  std::list<Peer> others(1);
  first.send(test::registration("first", 1) + test::registration("again\xFF", 2));
  others.front().send(test::registration(std::string(200, 'x')));
  for (const Peer* peer : {&first, &first, &std::as_const(others.front())}) expect_answer(*peer, SMSG_REGISTER_ACK);
  json shown = table();
  ASSERT_EQ(shown["processes"].size(), 2u);
  EXPECT_EQ(shown["processes"][0]["program"], "again\uFFFD");
  EXPECT_EQ(shown["processes"][0]["type_name"], "analysis");
  EXPECT_EQ(shown["processes"][0]["pid"], getpid());
  EXPECT_EQ(shown["processes"][1]["program"], std::string(128, 'x'));
  EXPECT_THAT(test::Process(test::own_program("plovpced") + " --table").rest(), HasSubstr("2 alive; 3 registered"));

  first.send(test::deregistration());
  expect_answer(first, SMSG_DEREGISTER_ACK);
  others.clear();
  EXPECT_THAT(daemon.line_with("ended"), HasSubstr("xxx) ended without de-registering"));
  shown = table();
  EXPECT_EQ(shown["processes"].size(), 0u);
  EXPECT_EQ(shown["daemon"]["deregistered"], 1);
  EXPECT_EQ(shown["daemon"]["vanished"], 1);
}

TEST(Daemon, WritesWhatADeadProcessHasSent) {
  const Daemon daemon;
  daemon.line_with("listens");
  auto report = test::crash_report("/usr/bin/door");
  EXPECT_EQ(test::in_child([&] {
              const Peer peer;
              peer.send(test::registration("/usr/bin/door") + test::bytes_of(*report));
              return kill(getpid(), SIGKILL);
            }),
            1000 + SIGKILL);
  EXPECT_THAT(daemon.line_with("in the log"), HasSubstr("signal 11 is in the log"));
  ASSERT_EQ(reports().size(), 1u);
  const test::ReadLog log = reports()[0];
  EXPECT_EQ(log.eventid.log_type, 0x3D);
  EXPECT_EQ(log.name.substr(0, 7), "PCERROR");
  EXPECT_TRUE(log.flags & XLOG_LOG_PROBLEM_ANALYSIS);
  std::map<int, std::string> blocks;
  for (const test::Block& block : log.blocks) blocks[block.id] = block.bytes;
  EXPECT_EQ(blocks[3], std::string(report->text, report->text_length));
  EXPECT_EQ(blocks[4], std::string(reinterpret_cast<char*>(report->stack), 48));
  EXPECT_EQ(blocks[0xE0], report->backtrace);
  EXPECT_EQ(blocks[0xED], report->thread_trace);
  EXPECT_EQ(blocks[0xEE], report->process_trace);
  EXPECT_EQ(blocks[0xF0], std::string("\x0A\x04\x0B\0\0\0", 6));

  const std::string shown = test::Process(test::own_program("plovctl") + " show --crash --utc").rest();
  for (const char* line :
       {"  SIGSEGV (11)  Invalid memory access at 0x10\n  program     /usr/bin/door\n"
        "  process     4711, parent 1, thread F7C5A740, temporary process, report 0x40A\n"
        "  thread tag  door watcher\n  struck at   door::watch::open()+0x1a  in /usr/bin/door  0x565561f9\n",
        "\n    EDI  00000001  ESI  00000010  EAX  00000000  EBX  56558FD4\n",
        "\n    Stack from Esp to Ebp:  01000000 20CEFFFF.\n",
        "\n   1  0xffffcde0  ffffce08  56556233  08CEFFFF 33625556\n",
        "\n  > door::watch::open()+0x1a  in /usr/bin/door  0x565561f9\n    /lib/libc.so.6+0x21519  0xf7c21519\n",
        "newest 2 of 2 lines\n    first line\n    last line\n\n"})
    EXPECT_THAT(shown, HasSubstr(line));
  const json event = json::parse(test::Process(test::own_program("plovctl") + " show -n 1 --json --crash").rest());
  EXPECT_EQ(event["crash"]["registers"]["EIP"], "565561F9");
  EXPECT_EQ(event["crash"]["struck_at"], "door::watch::open()+0x1a");
  EXPECT_EQ(event["crash"]["frames"].size(), 2u);
  EXPECT_THAT(test::Process(test::own_program("plovctl") + " show").rest(),
              HasSubstr(" SIGSEGV in /usr/bin/door[4711]: Invalid memory access at 0x10\n"));

  // Of one that was cut off behind its text, that is kept.
  const std::string begin = test::bytes_of(*report).substr(0, 10000);
  std::list<Peer>(1).front().send(begin);
  EXPECT_THAT(daemon.line_with("in the log"), HasSubstr("signal 11"));
  const std::vector<test::ReadLog> both = reports();
  ASSERT_EQ(both.size(), 2u);
  for (const test::Block& block : both[0].blocks) EXPECT_NE(block.id, 0xE0);
}

TEST(Daemon, AnswersAndTakesAFloodWhileTheLogIsHeld) {
  constexpr unsigned kSenders = 90;  // more than it keeps in hand
  const Daemon daemon;
  daemon.line_with("listens");
  uint32_t comprc;
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_LOCK, &comprc), 0);
  std::list<Peer> senders(kSenders);
  auto report = test::crash_report("/usr/bin/flood");
  report->process_trace_length = report->thread_trace_length = 0;
  std::vector<std::thread> threads;
  for (Peer& sender : senders) threads.emplace_back([&] { sender.send(test::bytes_of(*report)); });
  const Peer other;
  other.send(test::registration("other"));
  expect_answer(other, SMSG_REGISTER_ACK);
  EXPECT_EQ(table()["daemon"]["recorded"], 0);
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_UNLOCK, &comprc), 0);
  for (std::thread& thread : threads) thread.join();
  for (const Peer& sender : senders) expect_answer(sender, SMSG_TAKE_LOG_ACK);
  EXPECT_EQ(reports().size(), kSenders);
}

TEST(Daemon, ClosesGarbage) {
  const Daemon daemon;
  daemon.line_with("listens");
  std::string lying = test::registration("liar");
  lying[0] = '\x97';
  for (const std::string& bytes : {std::string(5000, '\xFF'), std::string(20, '\0'), lying}) {
    const Peer bad;
    bad.send(bytes);
    EXPECT_EQ(bad.rest(), "");
    EXPECT_THAT(daemon.line_with("closed"), HasSubstr("what is no message"));
  }
  EXPECT_EQ(table()["daemon"]["refused"], 3);
}

TEST(Daemon, ClosesDawdlers) {
  Daemon daemon("--patience 0.1");
  daemon.line_with("listens");
  for (const std::string& bytes :
       {std::string(), test::deregistration().substr(1), test::bytes_of(*test::crash_report("slow")).substr(0, 100)}) {
    const Peer slow;
    slow.send(bytes);
    EXPECT_EQ(slow.rest(), "");
    EXPECT_THAT(daemon.line_with("closed"), HasSubstr("takes too long"));
  }
  // One that takes no answers: what it goes on asking stays in its socket, until it is closed.
  const Peer deaf;
  for (pollfd entry = {deaf.descriptor(), POLLOUT, 0}; (entry.revents & (POLLERR | POLLHUP)) == 0;) {
    deaf.send(test::registration("deaf"));
    ASSERT_EQ(poll(&entry, 1, -1), 1);
  }
  EXPECT_THAT(daemon.line_with("closed"), HasSubstr("takes too long"));
  daemon.stop();
  EXPECT_EQ(daemon.process.wait(), 0);
}

TEST(Daemon, EndsWithWhatWasSentRecorded) {
  {
    const Daemon killed;  // leaves its socket behind
    killed.line_with("listens");
  }
  ASSERT_TRUE(test::exists(test::socket_path()));
  Daemon daemon;
  daemon.line_with("listens");
  std::list<Peer> senders(5);
  for (const Peer& sender : senders) sender.send(test::bytes_of(*test::crash_report("last words")));
  EXPECT_THAT(refusal(), HasSubstr("a daemon runs already"));
  daemon.stop();
  EXPECT_THAT(daemon.process.rest(), HasSubstr("has ended"));
  EXPECT_EQ(daemon.process.wait(), 0);
  EXPECT_EQ(reports().size(), 5u);
  EXPECT_TRUE(std::filesystem::is_empty("run"));
}

TEST(Daemon, StartsOnlyWhereItsSocketIsSafe) {
  ASSERT_THAT(test::Process(test::own_program("plovpced") + " --table 2>&1").rest(), HasSubstr("no daemon runs"));
  std::filesystem::create_directory("run");
  chmod("run", 0775);
  EXPECT_THAT(refusal(), HasSubstr("others may write there"));
  chmod("run", 0700);
  test::write_file(test::socket_path(), "mine");
  EXPECT_THAT(refusal(), HasSubstr("is there already and no socket"));
  EXPECT_EQ(test::read_file(test::socket_path()), "mine");
  if (getuid() != 0) GTEST_SKIP() << "the rest needs root";

  // A squatter gets nothing of anybody.
  unlink(test::socket_path().c_str());
  const int squatter = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  sockaddr_un address = {AF_UNIX, {}};
  test::socket_path().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(squatter, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(squatter, 5), 0);
  ASSERT_EQ(lchown(test::socket_path().c_str(), kNobody, kNobody), 0);
  EXPECT_THAT(refusal(), HasSubstr("belongs to user 65534"));
  EXPECT_THAT(test::Process(test::own_program("plovpced") + " --table 2>&1").rest(),
              HasSubstr("belongs to user 65534"));
  EXPECT_EQ(accept(squatter, nullptr, nullptr), -1);
  ASSERT_EQ(chown("run", kNobody, kNobody), 0);
  EXPECT_THAT(refusal(), HasSubstr("run/: belongs to user 65534"));
}

TEST(Daemon, RefusesStrangers) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const Daemon daemon;
  daemon.line_with("listens");
  // Let in by a careless hand.
  chmod(test::socket_path().c_str(), 0777);
  for (const char* directory : {"run", ".", ".."}) chmod(directory, 0755);
  EXPECT_EQ(test::in_child([] {
              if (setuid(kNobody) != 0) return 1;
              const Peer stranger;
              stranger.send(test::registration("stranger"));
              return !stranger.connected() ? 2 : stranger.answer() ? 3 : 0;
            }),
            0);
  EXPECT_THAT(daemon.line_with("refused"), HasSubstr("of user 65534 is refused"));
  EXPECT_EQ(table()["daemon"]["registered"], 0);
}

}  // namespace
