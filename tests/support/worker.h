// What a worker process records, so that whoever reads it back can tell every event from its number.
#ifndef PLOV_TESTS_WORKER_H
#define PLOV_TESTS_WORKER_H

#include <string>

namespace test {

// The bytes of the event with this number: 40 to 3,000 of them, some that shrink and some that do not.
std::string worker_bytes(unsigned worker, unsigned thread, unsigned number);

inline constexpr unsigned char kWorkerClass = 0x60;  // plus the worker's number
inline constexpr unsigned char kWorkerBlock = 0x42;

// A child of this test, ended with the object if it still runs.
class Process {
 public:
  explicit Process(const std::string& command);  // by the shell, with exec
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  int wait();       // exit status, 128 + signal
  void kill_now();  // SIGKILL and wait
  bool running();
  int id() const { return pid_; }
  int output() const { return output_; }  // its standard output
  std::string rest();                     // everything it still writes

 private:
  int pid_;
  int output_ = -1;
};

// A program of this build, or of the plain build of the other word size.
std::string own_program(const std::string& name);
std::string other_abi_program(const std::string& name);

// Exit status of `plovctl check` over a log file; its words are printed when it is not 0.
int check_log(const std::string& path);

}  // namespace test

#endif
