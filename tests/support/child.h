// Code run in a forked child.
#ifndef PLOV_TESTS_CHILD_H
#define PLOV_TESTS_CHILD_H

#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

// What became of a child: its exit code, or 1000 + the signal that ended it.
inline int wait_for(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR) return -1;
  return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

template <class Function>
pid_t start_child(Function function) {
  const pid_t child = fork();
  if (child == 0) _exit(function());
  return child;
}

// Forks, runs `function` there and waits; its result is the exit code. Assertions do not work in it.
template <class Function>
int in_child(Function function) {
  return wait_for(start_child(function));
}

}  // namespace test

#endif
