#include "support/worker.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>
#include <random>

namespace test {

std::string worker_bytes(unsigned worker, unsigned thread, unsigned number) {
  std::minstd_rand random(worker * 1000003 + thread * 10007 + number + 1);
  std::string bytes = "worker " + std::to_string(worker) + " thread " + std::to_string(thread) + " event " +
                      std::to_string(number) + " ";
  const size_t size = 40 + random() % 2960;
  const unsigned alphabet = number % 3 == 0 ? 256 : 20;
  while (bytes.size() < size) bytes += static_cast<char>(random() % alphabet);
  return bytes;
}

Process::Process(const std::string& command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) abort();
  pid_ = fork();
  if (pid_ == 0) {
    dup2(ends[1], STDOUT_FILENO);
    execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  output_ = ends[0];
}

Process::~Process() {
  if (pid_ > 0) kill_now();
  close(output_);
}

int Process::wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

void Process::kill_now() {
  kill(pid_, SIGKILL);
  wait();
}

bool Process::running() {
  siginfo_t info = {};
  return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

std::string Process::rest() {
  std::string text;
  char buffer[4096];
  for (ssize_t got; (got = read(output_, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(got));
  return text;
}

std::string own_program(const std::string& name) {
  return std::string(PLOV_BINARY_DIR "/") + name;
}

std::string other_abi_program(const std::string& name) {
  const char* const other = sizeof(void*) == 4 ? "x86_64" : "i386";
  const std::string path = std::string(PLOV_BINARY_DIR "/../") + other + "/" + name;
  if (access(path.c_str(), X_OK) != 0) {
    std::cerr << path << " is missing: build both word sizes first (make build)\n";
    exit(1);
  }
  return path;
}

int check_log(const std::string& path) {
  Process check(own_program("plovctl") + " check " + path + " 2>&1");
  const std::string words = check.rest();
  const int status = check.wait();
  if (status != 0) std::cerr << words;
  return status;
}

}  // namespace test
