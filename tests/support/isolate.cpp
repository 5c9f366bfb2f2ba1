// isolate PROGRAM [ARGUMENT...]: runs a test program in surroundings of its own and removes them afterwards: an IPC
// name space (System V keys are machine-wide), a console directory with the shipped configuration at CONSOLE_PATH, and
// an empty working directory.
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <limits.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

#include "map_source.h"

namespace {

[[noreturn]] void fail(const char* what) {
  fprintf(stderr, "isolate: %s: %s\n", what, strerror(errno));
  exit(99);
}

void copy_file(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(to, std::ios::binary);
  if (!in || !(out << in.rdbuf())) fail(from.c_str());
}

// The map of system values, of its shipped source.
void build_map_files(const std::string& config) {
  std::ifstream source(PLOV_ETC_DIR "/ywkzsim.txt");
  const plov::ctl::MapFiles map = plov::ctl::build_map({std::string(std::istreambuf_iterator<char>(source), {})});
  if (!map.error.empty() || mkdir(config.c_str(), 0755) != 0) fail(map.error.c_str());
  for (const auto& [name, bytes] : map.files) std::ofstream(config + name, std::ios::binary) << bytes;
}

void write_text(const char* path, const std::string& text) {
  int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) fail(path);
  close(fd);
}

// Without the right to make an IPC name space, one comes with a user name space in which we keep our own id.
void enter_namespaces() {
  if (unshare(CLONE_NEWIPC) == 0) return;
  const std::string uid = std::to_string(getuid()), gid = std::to_string(getgid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) fail("no IPC name space to be had");
  write_text("/proc/self/setgroups", "deny");
  write_text("/proc/self/uid_map", uid + " " + uid + " 1");
  write_text("/proc/self/gid_map", gid + " " + gid + " 1");
}

int remove_entry(const char* path, const struct stat*, int, struct FTW*) {
  return remove(path);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: isolate PROGRAM [ARGUMENT...]\n");
    return 2;
  }
  char program[PATH_MAX];
  if (!realpath(argv[1], program)) fail(argv[1]);
  enter_namespaces();
  const char* parent = getenv("TMPDIR");
  std::string root = std::string(parent ? parent : "/tmp") + "/plovsp1-test-XXXXXX";
  if (!mkdtemp(root.data())) fail("mkdtemp");
  const std::string console = root + "/console/", work = root + "/work";
  if (mkdir(console.c_str(), 0755) != 0 || mkdir(work.c_str(), 0755) != 0) fail("mkdir");
  for (const char* name : {"ywkddfc.trm", "wexoinit.trm"})
    copy_file(std::string(PLOV_ETC_DIR "/") + name, console + name);
  build_map_files(console + "config/");
  copy_file(PLOV_ETC_DIR "/ywkzsfm.h", console + "config/ywkzsfm.h");

  pid_t child = fork();
  if (child < 0) fail("fork");
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setenv("CONSOLE_PATH", console.c_str(), 1);
    unsetenv("PLOV_TRACE");
    if (chdir(work.c_str()) != 0) fail("chdir");
#ifdef __SANITIZE_THREAD__
    personality(ADDR_NO_RANDOMIZE);  // the thread sanitizer's memory map has no room for every random one
#endif
    execv(program, argv + 1);
    fail(program);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  nftw(root.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
  if (WIFSIGNALED(status)) {
    fprintf(stderr, "isolate: %s was ended by signal %d (%s)\n", argv[1], WTERMSIG(status),
            strsignal(WTERMSIG(status)));
    return 128 + WTERMSIG(status);
  }
  return WEXITSTATUS(status);
}
