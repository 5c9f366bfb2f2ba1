// plovctl doctor: what it says of a console directory that is well, and of one that is not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child.h"
#include "support/files.h"
#include "support/log_file.h"
#include "support/worker.h"
#include "xlog.h"
#include "xsim_format.h"

namespace {

using test::console_path;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string doctor(int expected) {
  test::Process process(test::own_program("plovctl") + " 2>&1 doctor");
  const std::string out = process.rest();
  EXPECT_EQ(process.wait(), expected) << out;
  return out;
}

void write_configuration(const std::string& second_line) {
  test::write_file(console_path() + "wexoinit.trm", "9 x\n" + second_line + "\n9 x\n9 x\n0 x\n100 x\n2 x\n");
}

class Doctor : public testing::Test {
 protected:
  void SetUp() override {
    setenv("PCE_TEMPDIR", console_path().c_str(), 1);
    for (const char* name : {"data/", "config/", "core/"}) mkdir((console_path() + name).c_str(), 0700);
    write_configuration("10 x");
    write(test::LogFile());
  }
  static void write(test::LogFile file, unsigned units = 10) {
    file.header.max_file_size = static_cast<uint16_t>(units);
    test::write_file(test::data_path("wexolog.log"), file.bytes());
    chmod(test::data_path("wexolog.log").c_str(), 0600);
  }
};

TEST_F(Doctor, FindsAHealthyDirectoryWell) {
  EXPECT_THAT(doctor(0), AllOf(HasSubstr("main log up to 20,480 bytes, 2 compressed copies"), HasSubstr("bytes used"),
                               HasSubstr("not loaded yet"), HasSubstr("not running"), Not(HasSubstr("PROBLEM"))));
  EXPECT_LT(semget(XLOG_SEMAPHORE_KEY, 0, 0), 0) << "and makes nothing";
}

TEST_F(Doctor, NamesWhatIsWrong) {
  write_configuration("ten");
  EXPECT_THAT(doctor(1), HasSubstr("line 2 (largest main log) begins with no number"));
  write_configuration("10 x");

  chmod(test::data_path("wexolog.log").c_str(), 0644);
  EXPECT_THAT(doctor(1), HasSubstr("-> chmod 600 '" + test::data_path("wexolog.log")));
  test::LogFile interrupted;
  interrupted.header.file_flags |= XLOG_FILE_PRUNE_IN_PROGRESS;
  write(interrupted, 20);
  test::write_file(test::data_path("wexosave.log"), "damaged");
  EXPECT_THAT(doctor(0), AllOf(HasSubstr("while it makes room"), HasSubstr("may grow to 40,960 bytes"),
                               HasSubstr("a damaged log was saved aside")));

  rmdir((console_path() + "core").c_str());
  remove((console_path() + "ywkddfc.trm").c_str());
  EXPECT_THAT(doctor(1), AllOf(HasSubstr("plovctl init DIR"), Not(HasSubstr("configuration"))));
}

TEST_F(Doctor, TellsALockThatIsHeldForNobody) {
  const int id = semget(XSIM_KEY_MESSAGE, 1, IPC_CREAT | 0666);
  const pid_t child = test::start_child([id] {
    sembuf take = {0, 1, 0};  // without undo
    return semop(id, &take, 1) == 0 ? 0 : 1;
  });
  ASSERT_EQ(test::wait_for(child), 0);
  EXPECT_THAT(doctor(1), AllOf(HasSubstr("held for process " + std::to_string(child) + ", which is gone"),
                               HasSubstr("ipcrm -S 0x96728007")));
  semctl(id, 0, IPC_RMID);

  ASSERT_GE(shmget(XSIM_KEY_HEADER, sizeof(xsim_header_block), IPC_CREAT | 0666), 0);
  EXPECT_THAT(doctor(1), HasSubstr("its loading failed"));
  shmctl(shmget(XSIM_KEY_HEADER, 0, 0), IPC_RMID, nullptr);
}

}  // namespace
