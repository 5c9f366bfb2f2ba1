// log_worker WORKER THREADS EVENTS [SECOND]: each thread records EVENTS events (0: for ever) and reports each one that
// was taken as a line "thread number seconds hundredths". Exit status 1 when a record fails. With SECOND the clock
// stands still there and no event tells of the process, so that the files of two runs can be compared.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "support/worker.h"
#include "xlog.h"

namespace {

unsigned worker, events;
time_t clock_stands;  // 0: it goes

timespec now() {
  timespec time = {clock_stands, 0};
  if (clock_stands == 0) clock_gettime(CLOCK_REALTIME, &time);
  return time;
}

void record_all(unsigned thread) {
  for (unsigned number = 0; events == 0 || number < events; ++number) {
    const std::string bytes = test::worker_bytes(worker, thread, number);
    xlog_data_node node = {static_cast<uint32_t>(bytes.size()), test::kWorkerBlock, bytes.data(), nullptr};
    xlog_log_request request = {};
    request.flags = clock_stands == 0 ? XLOG_STANDARD_LOG_FLAG : 0;
    request.eventid = {static_cast<uint8_t>(test::kWorkerClass + worker), static_cast<uint8_t>(thread),
                       static_cast<uint16_t>(number)};
    memcpy(request.event_name, "log worker  ", XLOG_NAME_SIZE);
    request.data = &node;
    uint32_t comprc = 0;
    const int sysrc = xlog_record(&request, &comprc);
    if (sysrc != 0) {
      fprintf(stderr, "worker %u: sysrc %d, comprc 0x%X\n", worker, sysrc, comprc);
      _exit(1);
    }
    char line[64];
    const int length = snprintf(line, sizeof line, "%u %u %u %u\n", thread, number, request.timestamp.seconds,
                                request.timestamp.hundredths);
    if (write(STDOUT_FILENO, line, static_cast<size_t>(length)) != length) _exit(1);
  }
}

}  // namespace

extern "C" time_t time(time_t*) {
  return now().tv_sec;
}

extern "C" int gettimeofday(struct timeval* time, void*) {
  const timespec exact = now();
  *time = {exact.tv_sec, static_cast<suseconds_t>(exact.tv_nsec / 1000)};
  return 0;
}

int main(int argc, char** argv) {
  if (argc < 4 || argc > 5) return 2;
  clock_stands = argc == 5 ? atoi(argv[4]) : 0;
  worker = static_cast<unsigned>(atoi(argv[1]));
  events = static_cast<unsigned>(atoi(argv[3]));
  std::vector<std::thread> threads;
  for (int i = 0; i < atoi(argv[2]); ++i) threads.emplace_back(record_all, static_cast<unsigned>(i));
  for (auto& thread : threads) thread.join();
  return 0;
}
