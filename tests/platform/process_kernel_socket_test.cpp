// The process kernel's sockets and sends, names of processes, signal stacks, and its events under both locks.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "pce.h"
#include "support/child.h"
#include "support/doubles.h"
#include "support/log_calls.h"
#include "xtr.h"

namespace {
int interruptions;  // of connects to come
}

int connect(int descriptor, const sockaddr* address, socklen_t length) {
  if (interruptions == 0) return REAL(connect)(descriptor, address, length);
  --interruptions;
  errno = EINTR;
  return -1;
}

namespace {

int32_t connect_to(const char* path, int32_t descriptor, pce_call_record* record) {
  sockaddr_un address = {AF_UNIX, {}};
  strcpy(address.sun_path, path);
  return pce_connect_hard(record, descriptor, reinterpret_cast<sockaddr*>(&address),
                          static_cast<uint32_t>(offsetof(sockaddr_un, sun_path) + strlen(path)));
}

TEST(Sockets, ConnectAlsoWhenASignalInterrupts) {
  pce_call_record record = {};
  int32_t listener, client, other;
  ASSERT_EQ(pce_socket(&record, 1, 1, 0, &listener), 0);
  ASSERT_EQ(pce_socket(&record, 1, 1, 0, &client), 0);
  EXPECT_TRUE(fcntl(client, F_GETFD) & FD_CLOEXEC);
  sockaddr_un address = {AF_UNIX, "listener"};
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener, 0), 0);
  interruptions = 2;
  EXPECT_EQ(connect_to("listener", client, &record), 0);
  EXPECT_EQ(record.sysrc, 0u);
  timeval limit;
  socklen_t size = sizeof limit;
  ASSERT_EQ(getsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &limit, &size), 0);
  EXPECT_TRUE(limit.tv_sec == 0 && limit.tv_usec == 0) << "later sends would be cut off";
  EXPECT_EQ(pce_soclose(&record, client), 0);

  EXPECT_EQ(connect_to("nobody", listener, &record), ENOENT);
  EXPECT_EQ(record.comprc, static_cast<uint32_t>(ENOENT));
  EXPECT_EQ(record.sysrc, 8u);
  EXPECT_EQ(pce_soclose(&record, client), EBADF);
  EXPECT_EQ(pce_socket(&record, 1, 99, 0, &other), EINVAL);
  EXPECT_EQ(other, -1);
  EXPECT_EQ(record.comprc, static_cast<uint32_t>(ENOENT)) << "the first reason stays";
  EXPECT_EQ(pce_soclose(&record, listener), 0);
}

TEST(Send, CutsIntoPieces) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);  // keeps the pieces apart
  pce_call_record record = {};
  const std::string message = "0123456789";
  uint32_t sent = 99;
  errno = EXDEV;
  ASSERT_EQ(pce_tmr_send(&record, ends[0], message.data(), 10, 4, &sent, 30000), 0);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(sent, 10u);
  for (const char* piece : {"0123", "4567", "89"}) {
    char buffer[16];
    const ssize_t count = recv(ends[1], buffer, sizeof buffer, 0);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(count)), piece);
  }
}

TEST(Send, EndsInTimeAndSaysHowMuchWent) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  std::vector<char> message(1 << 20, 'x');
  pce_call_record record = {};
  uint32_t sent = 0;
  EXPECT_EQ(pce_tmr_send(&record, ends[0], message.data(), 1 << 20, 16384, &sent, 20), ETIMEDOUT);
  EXPECT_EQ(record.comprc, static_cast<uint32_t>(ETIMEDOUT));
  EXPECT_GT(sent, 0u);
  uint32_t there = 0;
  for (ssize_t count; (count = recv(ends[1], message.data(), message.size(), MSG_DONTWAIT)) > 0;)
    there += static_cast<uint32_t>(count);
  EXPECT_EQ(sent, there);

  const pid_t reader = test::start_child([&] {
    size_t total = 0;
    close(ends[0]);
    for (ssize_t count; (count = recv(ends[1], message.data(), 1000, 0)) > 0;) total += static_cast<size_t>(count);
    return total == message.size() ? 0 : 1;
  });
  EXPECT_EQ(pce_tmr_send(&record, ends[0], message.data(), 1 << 20, 16384, &sent, PCE_WAIT_FOREVER), 0);
  EXPECT_EQ(sent, 1u << 20);
  shutdown(ends[0], SHUT_WR);
  EXPECT_EQ(test::wait_for(reader), 0);

  close(ends[1]);
  EXPECT_EQ(pce_tmr_send(&record, ends[0], message.data(), 4, 16384, &sent, 1000), EPIPE) << "SIGPIPE ends this test";
  EXPECT_EQ(sent, 0u);
}

TEST(Names, TellTheProgramAndTheDirectory) {
  pce_call_record record = {};
  char name[128], cut[5];
  ASSERT_EQ(pce_get_progname(&record, xtr_getpid(), name, sizeof name), 0);
  EXPECT_NE(std::string(name).find("process_kernel_socket_test"), std::string::npos);
  ASSERT_EQ(pce_get_progname(&record, xtr_getpid(), cut, sizeof cut), 0);
  EXPECT_EQ(std::string(cut), std::string(name).substr(0, 4));
  const pid_t dead = test::start_child([] { return 0; });
  siginfo_t information;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(dead), &information, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(pce_get_progname(&record, static_cast<uint32_t>(dead), name, sizeof name), 0);
  EXPECT_STREQ(name, "process_kernel_") << "a zombie has no command line";
  test::wait_for(dead);
  EXPECT_EQ(pce_get_progname(&record, static_cast<uint32_t>(dead), name, sizeof name), ENOENT);
  EXPECT_STREQ(name, "");

  const auto directory = [&](const char* value, uint32_t size) {
    char text[32], safe[32];
    value ? setenv("PCE_TEMPDIR", value, 1) : unsetenv("PCE_TEMPDIR");
    const int32_t result = pce_find_tempdir(&record, text, size);
    EXPECT_EQ(pce_sig_tempdir(safe, size), result);
    return result == 0 && strcmp(text, safe) == 0 ? std::string(text) : std::to_string(result);
  };
  EXPECT_EQ(directory(nullptr, 32), "/tmp/");
  EXPECT_EQ(directory("", 32), "/tmp/");
  EXPECT_EQ(directory("relative/", 32), "/tmp/");
  EXPECT_EQ(directory("/run/console", 14), "/run/console/");
  EXPECT_EQ(directory("/run/console/", 14), "/run/console/");
  EXPECT_EQ(directory("/run/console", 13), std::to_string(ENAMETOOLONG));
}

TEST(SignalStack, IsSetAndTakenAway) {
  pce_call_record record = {};
  std::vector<char> area(65536);
  stack_t stack = {}, found = {};
  stack.ss_sp = area.data();
  stack.ss_size = area.size();
  ASSERT_EQ(pce_sig_alt_stack(&record, &stack), 0);
  ASSERT_EQ(sigaltstack(nullptr, &found), 0);
  EXPECT_EQ(found.ss_sp, area.data());
  stack.ss_size = 16;
  EXPECT_EQ(pce_sig_alt_stack(&record, &stack), ENOMEM);
  EXPECT_EQ(record.sysrc, 8u);
  stack = {};
  stack.ss_flags = SS_DISABLE;
  EXPECT_EQ(pce_sig_alt_stack(&record, &stack), 0);
  ASSERT_EQ(sigaltstack(nullptr, &found), 0);
  EXPECT_TRUE(found.ss_flags & SS_DISABLE);
}

TEST(Events, AreRecordedUnderTheLogLockAndAfterTheMutex) {
  uint32_t comprc;
  pce_call_record record = {};
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_LOCK, &comprc), 0);
  pce_log_event(&record, "log lock", nullptr, nullptr, 1);
  ASSERT_EQ(pce_pthd_mutex_req(&record, &xtr_mutex_sem, 90000, 0x750), 0);
  pce_log_event(&record, "both", nullptr, nullptr, 2);
  EXPECT_EQ(pce_pthd_mutex_rel(&record, &xtr_mutex_sem, 0x750), 0);
  ASSERT_EQ(pce_pthd_mutex_req(&record, &xtr_mutex_sem, 90000, 0x750), 0);
  pce_log_event(&record, "first out", nullptr, nullptr, 3);
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_UNLOCK, &comprc), 0);
  EXPECT_EQ(pce_pthd_mutex_rel(&record, &xtr_mutex_sem, 0x750), 0);
  EXPECT_EQ(xlog_access_sem(XLOG_SEM_UNLOCK, &comprc), 2) << "the lock is still held";
  std::vector<unsigned> users;
  for (const test::ReadLog& log : test::read_all())
    if (log.eventid.classes == 5) users.push_back(log.eventid.user);
  EXPECT_EQ(users, (std::vector<unsigned>{3, 2, 1}));
}

}  // namespace
