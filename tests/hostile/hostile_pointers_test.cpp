// Every pointer argument of every exported function with every kind of bad pointer: the stated code, nothing else
// written, signal action and mask as before, the log lock free, the process alive. One table; it is compared with the
// library's export list.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"
#include "support/log_calls.h"
#include "support/map_file.h"
#include "support/pages.h"
#include "support/signals.h"
#include "support/worker.h"
#include "xbt.h"
#include "xdfc.h"
#include "xlog.h"
#include "xmis.h"
#include "xpce.h"
#include "xsim.h"

using namespace test;

// What the restart code falls back to. No bad pointer leads there; should one ever do, the machine stays up.
extern "C" int system(const char* command) {
  ADD_FAILURE() << command;
  return -1;
}

namespace {

enum class Use { input, output, string };
using enum Use;

// A pointer that fits every parameter.
struct Any {
  void* address;
  template <class T>
  operator T*() const {
    return static_cast<T*>(address);
  }
};

// One pointer argument: what it must be good for, what is said when it is not, and a call that is good but for it.
struct Argument {
  const char* function;
  const char* name;
  Use use;
  size_t size;
  uint32_t comprc;
  std::function<int(Any, uint32_t*)> call;
};

// Good values for the arguments beside the bad one.
struct Good {
  ~Good() { fclose(stream); }
  FILE* stream = tmpfile();
  char buffer[4096] = "";
  uint32_t word = 0, word2 = 0;
  int32_t number = 0;
  alignas(FILE) char room[sizeof(FILE)] = "";
  FILE** handle = reinterpret_cast<FILE**>(room);
  xdfc_file_date date = {};
  struct sigaction action = {};
  char* text = nullptr;
};

int record_with(xlog_data_node* node, uint32_t* rc) {
  if (!node) return *rc = 0x1102, 2;  // no node is no fault
  xlog_log_request request = {};
  request.eventid.classes = 9;
  request.data = node;
  return xlog_record(&request, rc);
}

int retrieve_with(xlog_pattern* pattern, const uint8_t* id_list, uint32_t* rc) {
  auto block = std::make_unique<xlog_retrieve_block>();
  *block = {};
  block->options = XLOG_OPT_ALL_CLASSES;
  block->patterns = pattern;
  block->id_list = id_list;
  block->id_count = 64;
  const int sysrc = xlog_retrieve(block.get(), rc);
  EXPECT_EQ(block->count, 0u);
  return sysrc;
}

int free_with(xlog_log_entry* entry, uint32_t* rc) {
  if (!entry) return *rc = 0x3102, 2;
  auto block = std::make_unique<xlog_retrieve_block>();
  *block = {};
  block->result = entry;
  const int sysrc = xlog_free(block.get(), rc);
  EXPECT_EQ(block->result, entry) << "what was not freed stays in place";
  return sysrc;
}

int spawn_with(const char* program, char** argv, char** envp, uint32_t* rc) {
  xmis_spawn_parameters parameters = {program, argv, envp, 0, 0, 0, 0, 0};
  const int sysrc = xmis_spawn_pgm(&parameters, rc);
  EXPECT_EQ(parameters.pid, 0) << "nothing was started";
  return sysrc;
}

int sysevent_with(xlog_variable* variables, const char* tower, uint32_t* rc) {
  xlog_system_event event = {};
  event.variables = variables;
  event.tower = tower;
  return xlog_sysevent(&event, rc);
}

int e4_sysevent_with(xlog_variable* variables, const void* extra, const char* tower, uint32_t* rc) {
  xlog_e4_system_event event = {};
  event.variables = variables;
  event.extra_size = extra ? 64 : 0;
  event.extra_data = extra;
  event.tower = tower;
  return xlog_e4_sysevent(&event, rc);
}

int append_with(uint8_t** cursor, const xlog_message_reference* reference, uint32_t* rc) {
  const xlog_event_data_details details = {cursor, 1, reference};
  return xlog_append_event_data(&details, rc);
}

int append_to(void* area, const xlog_message_reference& reference, uint32_t* rc) {
  uint8_t* cursor = static_cast<uint8_t*>(area);
  return append_with(&cursor, &reference, rc);
}

int update_with(const void* data, uint32_t* rc) {
  xlog_update_request request = {0, {}, 0, 64, "", data};
  return xlog_update_log(&request, rc);
}

// It says 8 to a bad request, and records an entry of its own about it.
int microcode_with(xlog_microcode_request* request, uint32_t* rc) {
  const int sysrc = xlog_microcode_log(request, rc);
  return sysrc == 8 ? 2 : sysrc;
}

// Where an address is optional, none is no fault: the table's answer for it.
template <class Call>
int unless_null(Any p, uint32_t code, uint32_t* rc, Call call) {
  return p.address ? call() : (*rc = code, 2);
}

// The calls of the map that tell by their comprc alone: 0 when the pointer was refused, 1 when comprc was.
int told(int sysrc, const uint32_t* rc) {
  return sysrc == 0 && *rc == XSIM_BAD_POINTER ? 2 : sysrc;
}

// A call in a way of its own, and the plain one; `p` is the bad pointer.
#define BAD_IN(function, name, use, size, comprc, expression) \
  Argument(#function, name, use, size, comprc, [&](Any p, uint32_t* rc) -> int { return expression; })
#define BAD_TOLD(function, name, use, size, ...) \
  BAD_IN(function, name, use, size, XSIM_BAD_POINTER, told(function(__VA_ARGS__, rc), rc))
#define BAD(function, name, use, size, comprc, ...) \
  BAD_IN(function, name, use, size, comprc, (function(__VA_ARGS__, rc)))

std::vector<Argument> arguments(Good& g) {
  static uint8_t bytes[64], encoded[64] = {5, 1, 4, 0};
  static xlog_data_node node;
  static xlog_pattern pattern;
  static xlog_mem_block block;
  static xlog_variable variable;
  static uint8_t* cursor = bytes;
  static char program[] = "true";
  static char* argv[] = {program, nullptr};
  static const uint32_t pieces[] = {2, 0, 32, 32, 32};
  const auto file = sizeof(FILE);
  return {
      BAD(xpce_ckptr, "address", output, 64, 6, p, 64),
      BAD(xpce_ckptr_rd, "address", input, 64, 6, p, 64),
      BAD(xpce_internal_ckptr, "address", output, 64, 6, p, 64, 1),
      BAD(xpce_ckstr, "string", string, 0, 2, p, &g.word),
      BAD(xpce_ckstr, "length", output, 4, 2, "a name", static_cast<uint32_t*>(p)),
      BAD(xpce_setup, "new action", output, sizeof g.action, 0x2200, 0, p, &g.action),
      BAD(xpce_setup, "old action", output, sizeof g.action, 0x2201, 0, &g.action, p),
      BAD(xpce_unset, "action", output, sizeof g.action, 0x2200, p),
      BAD(xpce_set_user_tag, "tag", string, 0, 0x2100, p),
      BAD(xdfc_query_file_location, "name", string, 0, 1024, p, g.buffer),
      BAD(xdfc_query_file_location, "path", output, 512, 1026, "wexolog.log", p),
      BAD(xdfc_search_file_open, "name", string, 0, 1024, p, 0, 1, 1, 0, g.handle, &g.word),
      BAD(xdfc_search_file_open, "handle", output, file, 1026, "x.log", 0, 1, 1, 0, p, &g.word),
      BAD(xdfc_search_file_open, "action", output, 4, 1029, "x.log", 0, 1, 1, 0, g.handle, p),
      BAD(xdfc_search_file_open2, "name", string, 0, 1024, p, "r", g.handle),
      BAD(xdfc_search_file_open2, "mode", string, 0, 1026, "x.log", p, g.handle),
      BAD(xdfc_search_file_open2, "handle", output, 4, 1029, "x.log", "r", p),
      BAD(xdfc_read, "buf", output, 64, 1024, p, 64, 1, g.stream, &g.number),
      BAD(xdfc_read, "handle", output, file, 1026, g.buffer, 64, 1, p, &g.number),
      BAD(xdfc_read, "done", output, 4, 1029, g.buffer, 64, 1, g.stream, p),
      BAD(xdfc_write, "buf", input, 64, 1024, p, 64, 1, g.stream, &g.number),
      BAD(xdfc_write, "handle", output, file, 1026, g.buffer, 64, 1, p, &g.number),
      BAD(xdfc_write, "done", output, 4, 1029, g.buffer, 64, 1, g.stream, p),
      BAD(xdfc_random_read, "handle", output, file, 1024, p, g.buffer, 64, 0, 0, &g.word, &g.word2),
      BAD(xdfc_random_read, "buf", output, 64, 1026, g.stream, p, 64, 0, 0, &g.word, &g.word2),
      BAD(xdfc_random_read, "done", output, 4, 1029, g.stream, g.buffer, 64, 0, 0, p, &g.word2),
      BAD(xdfc_random_read, "newpos", output, 4, 1030, g.stream, g.buffer, 64, 0, 0, &g.word, p),
      BAD(xdfc_random_write, "handle", output, file, 1024, p, g.buffer, 64, 0, 0, &g.word, &g.word2),
      BAD(xdfc_random_write, "buf", input, 64, 1026, g.stream, p, 64, 0, 0, &g.word, &g.word2),
      BAD(xdfc_random_write, "done", output, 4, 1029, g.stream, g.buffer, 64, 0, 0, p, &g.word2),
      BAD(xdfc_random_write, "newpos", output, 4, 1030, g.stream, g.buffer, 64, 0, 0, &g.word, p),
      BAD(xdfc_close_file, "handle", output, file, 1024, p),
      BAD(xdfc_delete_file, "name", string, 0, 1024, p),
      BAD(xdfc_file_copy, "source", string, 0, 1024, p, "y.log", 0),
      BAD(xdfc_file_copy, "target", string, 0, 1026, "x.log", p, 0),
      BAD(xdfc_query_file_size, "name", string, 0, 1024, p, &g.word),
      BAD(xdfc_query_file_size, "size", output, 4, 1026, "x.log", p),
      BAD(xdfc_query_file_date, "name", string, 0, 1024, p, &g.date),
      BAD(xdfc_query_file_date, "date", output, 8, 1026, "x.log", p),
      BAD(xdfc_disk_space, "path", string, 0, 1024, p, &g.word),
      BAD(xdfc_disk_space, "bytes_free", output, 4, 1026, "/", p),
      BAD(xdfc_disk_space2, "path", string, 0, 1024, p, &g.number),
      BAD(xdfc_disk_space2, "kb_free", output, 4, 1026, "/", p),
      BAD(xdfc_list_file, "pattern", string, 0, 1024, p, "!listing"),
      BAD(xdfc_list_file, "listfile", string, 0, 1026, "*", p),
      BAD(xdfc_list_file_mem, "pattern", string, 0, 1024, p, g.buffer, 64, &g.word),
      BAD(xdfc_list_file_mem, "buffer", output, 64, 1026, "*", p, 64, &g.word),
      BAD(xdfc_list_file_mem, "count", output, 4, 1029, "*", g.buffer, 64, p),
      BAD(xdfc_count_files, "count", output, 4, 1024, p, "*"),
      BAD(xdfc_count_files, "pattern", string, 0, 1026, &g.word, p),
      BAD(xdfc_emul_xrem_dir, "pattern", string, 0, 1026, &g.text, p),
      BAD(xdfc_emul_xrem_dir, "reply", output, sizeof g.text, 1024, p, "*"),
      BAD(xdfc_emul_ftp_nlst, "pattern", string, 0, 1026, &g.text, p),
      BAD(xdfc_emul_ftp_nlst, "reply", output, sizeof g.text, 1024, p, "*"),

      BAD(xlog_record, "request", output, sizeof(xlog_log_request), 0x1101, p),
      BAD_IN(xlog_record, "node", output, sizeof node, 0x1102, record_with(p, rc)),
      BAD_IN(xlog_record, "second node", output, sizeof node, 0x1102,
             !p.address ? record_with(p, rc) : (node = {4, 1, "data", p}, record_with(&node, rc))),
      BAD_IN(xlog_record, "data", input, 64, 0x1103, (node = {64, 1, p.address, nullptr}, record_with(&node, rc))),
      BAD(xlog_retrieve, "block", output, sizeof(xlog_retrieve_block), 0x2101, p),
      BAD_IN(xlog_retrieve, "pattern", output, sizeof pattern, 0x2102,
             p.address ? retrieve_with(p, bytes, rc) : (*rc = 0x2102, 2)),
      BAD_IN(xlog_retrieve, "pattern data", input, 64, 0x2103,
             (pattern = {64, 1, p, bytes, nullptr}, retrieve_with(&pattern, bytes, rc))),
      BAD_IN(xlog_retrieve, "pattern mask", input, 8, 0x2104,
             (pattern = {8, 1, bytes, p, nullptr}, retrieve_with(&pattern, bytes, rc))),
      BAD_IN(xlog_retrieve, "id list", input, 64, 0x2105, retrieve_with(nullptr, p, rc)),
      BAD(xlog_free, "block", output, sizeof(xlog_retrieve_block), 0x3101, p),
      BAD_IN(xlog_free, "entry", output, XLOG_ENTRY_ALLOCATION, 0x3102, free_with(p, rc)),
      BAD(xlog_report_error, "request", input, sizeof(xlog_log_request), 0x1101, p),
      BAD_IN(xp11_request, "event", input, sizeof(xlog_event_identity), 1, xp11_request(rc, 100, p, 0, 0, 0)),
      BAD_IN(xp11_critical, "event", input, sizeof(xlog_event_identity), 1, xp11_critical(rc, p, 160, 50, 284, 0)),

      BAD(xlog_mem_encode, "block", output, sizeof block, 0x9000, p),
      BAD_IN(xlog_mem_encode, "input", input, 64, 0x9000,
             (block = {p.address, 64, g.buffer, 1024}, xlog_mem_encode(&block, rc))),
      BAD_IN(xlog_mem_encode, "output", output, 64, 0x9000, (block = {bytes, 8, p, 64}, xlog_mem_encode(&block, rc))),
      BAD(xlog_mem_decode, "block", output, sizeof block, 0x9000, p),
      BAD_IN(xlog_mem_decode, "input", input, 64, 0x9000,
             (block = {p.address, 64, g.buffer, 1024}, xlog_mem_decode(&block, rc))),
      BAD_IN(xlog_mem_decode, "output", output, 64, 0x9000,
             (block = {encoded, 64, p, 64}, xlog_mem_decode(&block, rc))),

      BAD(xlog_sysevent, "event", input, sizeof(xlog_system_event), 1001, p),
      BAD_IN(xlog_sysevent, "variable", output, sizeof variable, 1002,
             unless_null(p, 1002, rc, [&] { return sysevent_with(p, nullptr, rc); })),
      BAD_IN(xlog_sysevent, "data", input, 64, 1003,
             (variable = {1, 64, p, nullptr}, sysevent_with(&variable, nullptr, rc))),
      BAD_IN(xlog_sysevent, "tower", string, 0, 1003,
             unless_null(p, 1003, rc, [&] { return sysevent_with(nullptr, p, rc); })),
      BAD(xlog_e4_sysevent, "event", output, sizeof(xlog_e4_system_event), 1004, p),
      BAD_IN(xlog_e4_sysevent, "extra data", input, 64, 1005,
             unless_null(p, 1005, rc, [&] { return e4_sysevent_with(nullptr, p, nullptr, rc); })),
      BAD_IN(xlog_e4_sysevent, "variable", output, sizeof variable, 1006,
             unless_null(p, 1006, rc, [&] { return e4_sysevent_with(p, nullptr, nullptr, rc); })),
      BAD_IN(xlog_e4_sysevent, "data", input, 64, 1007,
             (variable = {3, 64, p, nullptr}, e4_sysevent_with(&variable, nullptr, nullptr, rc))),
      BAD_IN(xlog_e4_sysevent, "tower", string, 0, 1007,
             unless_null(p, 1007, rc, [&] { return e4_sysevent_with(nullptr, nullptr, p, rc); })),
      BAD(xlog_append_event_data, "details", input, sizeof(xlog_event_data_details), 1011, p),
      BAD_IN(xlog_append_event_data, "cursor", output, sizeof cursor, 1012, append_with(p, nullptr, rc)),
      BAD_IN(xlog_append_event_data, "reference", input, sizeof(xlog_message_reference), 1013,
             append_with(&cursor, p, rc)),
      BAD_IN(xlog_append_event_data, "area", output, 5, 1014, append_to(p.address, {"bundle", "key", 0, nullptr}, rc)),
      BAD_IN(xlog_append_event_data, "bundle", string, 0, 1015, append_to(g.buffer, {p, "key", 0, nullptr}, rc)),
      BAD_IN(xlog_append_event_data, "key", string, 0, 1017, append_to(g.buffer, {"bundle", p, 0, nullptr}, rc)),
      BAD_IN(xlog_append_event_data, "texts", input, sizeof(char*), 1019,
             append_to(g.buffer, {"bundle", "key", 1, p}, rc)),

      BAD(xlog_log_purge, "block", input, sizeof(xlog_purge_block), 0x4103, p),
      BAD(xlog_trim_log, "destination", string, 0, 0x4104, p),
      BAD(xlog_update_log, "request", output, sizeof(xlog_update_request), 0x5101, p),
      BAD_IN(xlog_update_log, "data", input, 64, 0x5101, update_with(p, rc)),
      BAD(xlog_update_type, "request", output, sizeof(xlog_update_type_request), 0x5102, p),
      BAD(xlog_mark_log_for_delete, "request", output, sizeof(xlog_mark_request), 0x5103, p),
      BAD_IN(xlog_microcode_log, "request", output, sizeof(xlog_microcode_request), 0x8002, microcode_with(p, rc)),

      BAD(xmis_spawn_pgm, "parameters", output, sizeof(xmis_spawn_parameters), 1, p),
      BAD_IN(xmis_spawn_pgm, "program", string, 0, 3, spawn_with(p, argv, nullptr, rc)),
      BAD_IN(xmis_spawn_pgm, "envp", output, sizeof *argv, 4,
             p.address ? spawn_with(program, argv, p, rc) : (*rc = 4, 2)),  // none is the caller's own
      BAD_IN(xmis_spawn_pgm, "argv", input, sizeof *argv, 5, spawn_with(program, p, nullptr, rc)),

      BAD(xsim_read, "buffer", output, 64, 22, 5, p),
      BAD(xsim_read, "buffer for Java", output, 64, 22, 1500, p),
      BAD(xsim_write, "data", input, 64, 22, 5, p, 1),
      BAD(xsim_write, "data for Java", input, 64, 22, 1500, p, 1),
      BAD_TOLD(xsim_sub_read, "buffer", output, 64, 5, p, pieces),
      BAD_TOLD(xsim_sub_read, "pieces", input, sizeof pieces, 5, g.buffer, p),
      BAD_TOLD(xsim_sub_write, "data", input, 64, 5, p, pieces, 1),
      BAD_TOLD(xsim_sub_write, "pieces", input, sizeof pieces, 5, g.buffer, p, 1),
      BAD_TOLD(xsim_file_read, "buffer", output, 64, 5, p),
      BAD_TOLD(xsim_file_write, "data", input, 64, 5, p, 1),
      BAD(xsim_talk_2_java, "buffer", output, 64, 22, 1, 1500, 64, p),
      BAD_IN(xbt_restart, "application_name", string, 0, 1, xbt_restart(rc, p, p, 0)),  // any message is taken
  };
}

// Functions whose only pointer is comprc.
struct OnlyComprc {
  const char* name;
  int32_t (*call)(uint32_t* comprc);
  size_t size = sizeof(uint32_t);  // what of it is needed
};
constexpr OnlyComprc kOnlyComprc[] = {
    {"xsim_init", xsim_init},
    {"xpce_add_user_exit", [](uint32_t* rc) { return xpce_add_user_exit(nullptr, rc); }, 2},
    {"xpce_remove_user_exit", [](uint32_t* rc) { return xpce_remove_user_exit(nullptr, rc); }, 2},
    {"xsim_lock", [](uint32_t* rc) { return xsim_lock(5, rc); }},
    {"xsim_unlock", [](uint32_t* rc) { return xsim_unlock(5, rc); }}};

// Called by the log manager's own functions and by callers who promise good memory: they probe nothing, and say so.
const std::set<std::string> kUnprobed = {
    "xdfc_fixpathcase", "xlog_access_sem", "xlog_atoh", "xlog_close_file", "xlog_compress_file", "xlog_delete_logs",
    "xlog_error_handler", "xlog_find_comp_log", "xlog_free_mem", "xlog_get_standard", "xlog_init_file",
    "xlog_match_eventid", "xlog_match_pattern", "xlog_match_time", "xlog_open_file", "xlog_process_init",
    "xlog_sig_handler", "xlog_stage_one", "xlog_e4_prune", "xlog_get_block_size", "xlogTrimLog",
    "Java_com_zanth_vemra_base_brellogs_WriteData_jniPruneE4Log",
    // One never refuses, the other is xlog_microcode_log with a class.
    "xlog_get_backtrace", "xlog_microcode_log2",
    // Called by the kernel, by the C library, and by themselves.
    "xpce_convert_data", "xpce_noasyncHandler", "xpce_paHandler", "xpce_permHandler", "xpce_tempHandler",
    "xpce_thd_data_free",
    // They take none.
    "xlog_take_snapshot", "xsim_java_size", "xsim_size", "xsim_uninit"};
constexpr const char* kUnprobedFamilies[] = {"xact_", "xcsf_"};
const std::set<std::string> kData = {"SIM_array",      "bt_err_info",     "bt_err_list",      "err_info",
                                     "err_list",       "pXsim_ptr",       "pxsim_hdr",        "xdfc_file_req",
                                     "gl_daemon_sock", "gl_thd_data_key", "gl_use_alt_stack", "xlog_error_pending",
                                     "xlog_qrlse",     "xlog_sig_flag"};

struct BadPointer {
  const char* name;
  void* pointer;
};

// Never a process's own: the kernel's half, or on 32 bits the last page (the stack may end close below). Low addresses
// cannot be mapped.
constexpr uintptr_t kKernel = sizeof(void*) == 8 ? static_cast<uintptr_t>(0xFFFF800000001000) : 0xFFFFF800;

// Memory that is bad for a use, and what must stay as it is around it.
class BadMemory {
 public:
  BadMemory() : writable_(2, PROT_READ | PROT_WRITE), read_only_(1, PROT_READ | PROT_WRITE), closed_(1, PROT_NONE) {
    memset(writable_.begin(), 'n', 2 * kPage);
    read_only_.protect(0, PROT_READ);
  }

  std::vector<BadPointer> of(Use use, size_t size) const {
    const size_t crossing = use == Use::string ? 5 : size <= 4 ? (size + 1) / 2 : size - 4;
    std::vector<BadPointer> bad = {{"null", nullptr},
                                   {"1", reinterpret_cast<void*>(1)},
                                   {"odd small", reinterpret_cast<void*>(0x1001)},
                                   {"-1", reinterpret_cast<void*>(~uintptr_t{0})},
                                   {"top page", reinterpret_cast<void*>(~uintptr_t{0} - kPage + 1)},
                                   {"kernel", reinterpret_cast<void*>(kKernel)},
                                   {"no access", closed_.begin() + 8},
                                   {"hole", writable_.end()},
                                   {"hole, odd", writable_.end() + 17},
                                   {"unmapped", reinterpret_cast<void*>(0x8000)},
                                   {"unmapped, middle", reinterpret_cast<void*>(0xF800)},
                                   {"crosses into a hole", writable_.end() - crossing}};
    if (use == Use::output) {
      bad.push_back({"read-only", read_only_.begin()});
      bad.push_back({"read-only, odd", read_only_.begin() + 33});
      bad.push_back({"code", reinterpret_cast<void*>(&xpce_ckptr)});
      bad.push_back({"constant", const_cast<xpce_message*>(err_list)});
    }
    return bad;
  }

  bool untouched() const {
    for (const uint8_t* byte = writable_.begin(); byte != writable_.end(); ++byte)
      if (*byte != 'n') return false;
    return true;
  }

 private:
  Pages writable_, read_only_, closed_;
};

bool lock_is_free() {
  bool free = false;
  std::thread([&] {
    uint32_t code;
    free = xlog_access_sem(XLOG_SEM_LOCK, &code) == 0 && xlog_access_sem(XLOG_SEM_UNLOCK, &code) == 0;
  }).join();
  return free;
}

void try_everything() {
  Good good;
  const BadMemory memory;
  const SignalState before;
  int tried = 0;
  for (const Argument& argument : arguments(good)) {
    for (const BadPointer& bad : memory.of(argument.use, argument.size)) {
      SCOPED_TRACE(std::string(argument.function) + ", " + argument.name + ": " + bad.name);
      uint32_t comprc[3] = {0xAAAAAAAA, 0xBBBBBBBB, 0xCCCCCCCC};
      const bool encodes = std::string(argument.function) == "xlog_mem_encode";  // it speaks by its comprc alone
      EXPECT_EQ(argument.call({bad.pointer}, &comprc[1]), encodes ? 0 : 2);
      // A probe tells a range that wraps from one that faults.
      const bool wraps =
          argument.comprc == 6 && reinterpret_cast<uintptr_t>(bad.pointer) + argument.size < argument.size;
      EXPECT_EQ(comprc[1], wraps ? 7u : argument.comprc);
      EXPECT_EQ(comprc[0], 0xAAAAAAAA);
      EXPECT_EQ(comprc[2], 0xCCCCCCCC);
      ++tried;
    }
    // The same call with the same good arguments but a bad comprc: nothing else is looked at.
    for (const BadPointer& bad : memory.of(Use::output, sizeof(uint32_t))) {
      SCOPED_TRACE(std::string(argument.function) + ", comprc: " + bad.name);
      EXPECT_EQ(argument.call({memory.of(argument.use, argument.size)[6].pointer}, Any{bad.pointer}), 1);
      ++tried;
    }
    EXPECT_TRUE(memory.untouched()) << argument.function;
    EXPECT_TRUE(SignalState() == before) << argument.function;
  }
  for (const OnlyComprc& function : kOnlyComprc)
    for (const BadPointer& bad : memory.of(Use::output, function.size)) {
      SCOPED_TRACE(std::string(function.name) + ", comprc: " + bad.name);
      EXPECT_EQ(function.call(static_cast<uint32_t*>(bad.pointer)), 1);
      ++tried;
    }
  EXPECT_TRUE(lock_is_free());
  EXPECT_EQ(field(5, 64), std::string(64, '5')) << "nothing was written, and the map is free";
  printf("%d calls with a bad pointer\n", tried);
  EXPECT_GT(tried, 1500);
}

class HostilePointers : public testing::Test {
 protected:
  void SetUp() override {
    const std::string value(64, '5');
    MapFile().add(5, kPersistent, value).install();
    write_file(config_path("ywkzsfm.h"), "1500 c 64\n");
    ASSERT_EQ(record({}).sysrc, 0);  // which loads the map
  }
  void TearDown() override {
    EXPECT_EQ(record({}).sysrc, 0);
    auto logs = read_all();
    std::erase_if(logs, [](const ReadLog& log) { return log.name == std::string("LIC log Err\0", 12); });
    EXPECT_EQ(logs.size(), 3u) << "no refused record is in the log";
  }
};

TEST_F(HostilePointers, GetTheirCodes) {
  try_everything();
}

TEST_F(HostilePointers, GetThemUnderAForeignHandlerWithTheSignalBlocked) {
  handle_crashes([](int) { _exit(3); });
  sigset_t segv;
  sigemptyset(&segv);
  sigaddset(&segv, SIGSEGV);
  pthread_sigmask(SIG_BLOCK, &segv, nullptr);
  try_everything();
}

TEST(HostileTable, NamesEveryExport) {
  std::set<std::string> exported, known = kUnprobed;
  known.insert(kData.begin(), kData.end());
  Good good;
  for (const Argument& argument : arguments(good)) known.insert(argument.function);
  for (const OnlyComprc& function : kOnlyComprc) known.insert(function.name);
  std::istringstream names(Process("nm -D --defined-only " PLOV_BINARY_DIR "/libplovsp1.so").rest());
  for (std::string address, kind, name; names >> address >> kind >> name;)
    if (kind != "A") exported.insert(name.substr(0, name.find('@')));
  for (const char* family : kUnprobedFamilies)
    std::erase_if(exported, [=](const std::string& name) { return name.starts_with(family); });
  std::vector<std::string> only_one;
  std::set_symmetric_difference(exported.begin(), exported.end(), known.begin(), known.end(),
                                std::back_inserter(only_one));
  EXPECT_EQ(only_one, std::vector<std::string>());
}

TEST(Library, NeedsTheRunTimesAndThePlatformLayerAlone) {
  std::set<std::string> needed;
  std::string soname;
  std::istringstream words(Process("readelf -d " PLOV_BINARY_DIR "/libplovsp1.so").rest());
  for (std::string tag, word; words >> word;) {
    if (word[0] == '(') tag = word;
    if (word[0] != '[') continue;
    if (tag == "(NEEDED)") needed.insert(word);
    if (tag == "(SONAME)") soname = word;
  }
  EXPECT_EQ(soname, "[libplovsp1.so]");
  EXPECT_EQ(needed.erase("[libplovplatform.so]") + needed.erase("[libplovbridge.so]"), 2u);
  for (const char* run_time : {"[libc.so.6]", "[libm.so.6]", "[libgcc_s.so.1]", "[libstdc++.so.6]"})
    needed.erase(run_time);
  std::erase_if(needed, [](const std::string& name) { return name.find("san.so") != std::string::npos; });
  EXPECT_EQ(needed, std::set<std::string>());
}

}  // namespace
