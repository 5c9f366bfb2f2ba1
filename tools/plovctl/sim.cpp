// plovctl sim: looks at and changes the map of system values, and makes its files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "log_source.h"
#include "map_source.h"
#include "map_values.h"
#include "output.h"
#include "verbs.h"
#include "xsim.h"

namespace plov::ctl {
namespace {

struct Options {
  std::string source, directory = ".";
  uint32_t id = 0;
  std::string value, as = "auto";
  bool override_lock = false;
};

// No field is larger, whatever its size becomes between two calls.
constexpr uint32_t kLargestValue = 0x10000;
constexpr size_t kLargestSource = 16 << 20;  // far more than what fits into the files it makes
constexpr uint32_t kMostSlots = XSIM_FILE_LIMIT / sizeof(xsim_entry);

std::string named(uint32_t id) {
  return "field " + std::to_string(id);
}

bool java_served(uint32_t id) {
  return id >= XSIM_FIRST_JAVA_ID && id <= XSIM_LAST_JAVA_ID;
}

// The reason of a Java-served field may be the bridge's.
[[noreturn]] void failed(const char* call, uint32_t id, int32_t sysrc, uint32_t comprc) {
  const bool bridge = java_served(id) && !find_codes(Family::xnb, comprc).empty();
  throw CallFailure(call, named(id), bridge ? Family::xnb : Family::xsim, sysrc, comprc);
}

uint32_t size_of(uint32_t id) {
  return java_served(id) ? static_cast<uint32_t>(xsim_java_size(static_cast<int32_t>(id))) : xsim_size(id);
}

// A size of 0 has a reason that only reading tells. Meanwhile the field may have got a size: there is room for any.
uint32_t known_size(uint32_t id) {
  if (const uint32_t size = size_of(id); size != 0) return size;
  std::string room(kLargestValue, '\0');
  uint32_t comprc = 0;
  const int32_t sysrc = xsim_read(id, room.data(), &comprc);
  failed("xsim_read", id, sysrc, sysrc == 0 ? XSIM_NOT_INITIALIZED : comprc);
}

struct Value {
  std::string bytes;
  bool locked = false;
};

Value read(uint32_t id) {
  const uint32_t size = known_size(id);
  Value value = {std::string(std::max(size, kLargestValue), '\0'), false};
  uint32_t comprc = 0;
  const int32_t sysrc = xsim_read(id, value.bytes.data(), &comprc);
  value.bytes.resize(size);
  value.locked = sysrc != 0 && comprc == XSIM_FIELD_LOCKED && !java_served(id);
  if (sysrc != 0 && !value.locked) failed("xsim_read", id, sysrc, comprc);
  return value;
}

const char* place_of(uint8_t type) {
  if ((type & XSIM_STORAGE_BITS) == XSIM_DATA) return "data";
  if ((type & XSIM_STORAGE_BITS) != XSIM_PERMANENT) return "zero";
  return (type & XSIM_KEEP_BITS) == XSIM_PERSISTENT ? "persistent" : "permanent";
}

void list_field(uint32_t id, uint8_t flags, const Options& options, const Session& session) {
  const Value value = read(id);
  const char* const place = place_of(static_cast<uint8_t>(flags >> XSIM_TYPE_SHIFT));
  const std::string shown = show_map_value(value.bytes, options.as);
  if (session.json)
    return print_line({{"id", id},
                       {"size", value.bytes.size()},
                       {"place", place},
                       {"locked", value.locked},
                       {"value", shown},
                       {"hex", hex_bytes({reinterpret_cast<const uint8_t*>(value.bytes.data()), value.bytes.size()})}});
  print(pad(std::to_string(id), 6) + pad(std::to_string(value.bytes.size()), 7) + pad(place, 12) +
        (value.locked ? "locked  " : "        ") + shown + "\n");
}

// The array is read as the library publishes it; each value through the library.
void list(const Options& options, const Session& session) {
  uint32_t nothing = 0, shown = 0;
  xsim_size(1);
  if (!pXsim_ptr) failed("xsim_init", 1, xsim_init(&nothing), nothing);
  for (const int pass : {XSIM_TOLVANE, XSIM_QUEN}) {
    const uint32_t first = pass == XSIM_QUEN ? XSIM_FIRST_QUEN_ID : 1;
    if (pass == XSIM_QUEN) xsim_size(first);
    if (pXsim_ptr->pass[pass].loaded == 0 || !SIM_array[pass]) continue;
    // The count is in memory that anybody may write, and one more than the first array's ids at their most.
    const uint32_t last = pass == XSIM_QUEN ? first + kMostSlots : XSIM_FIRST_QUEN_ID - 1;
    const int32_t count = pXsim_ptr->pass[pass].field_count;
    for (uint32_t slot = 0; count > 0 && slot < static_cast<uint32_t>(count) && first + slot <= last; ++slot) {
      const uint32_t id = first + slot;
      if (java_served(id) || xsim_size(id) == 0) continue;
      list_field(id, static_cast<const xsim_entry*>(SIM_array[pass])[slot].flags, options, session);
      ++shown;
    }
  }
  if (shown == 0 && pXsim_ptr->pass[XSIM_TOLVANE].loaded == 0) read(1);  // says why
}

void get(const Options& options, const Session& session) {
  const Value value = read(options.id);
  const std::string shown = show_map_value(value.bytes, options.as);
  if (session.json)
    print_line({{"id", options.id},
                {"size", value.bytes.size()},
                {"locked", value.locked},
                {"value", shown},
                {"hex", hex_bytes({reinterpret_cast<const uint8_t*>(value.bytes.data()), value.bytes.size()})}});
  else
    print(shown + (value.locked ? "  (locked)\n" : "\n"));
}

void set(const Options& options, const Session& session) {
  const uint32_t size = known_size(options.id);
  const auto bytes = parse_map_value(options.value, size);
  if (!bytes)
    throw Usage("the value \"" + options.value +
                "\": expected a number, \"text\" in double quotes or hex:PAIRS, of at most " + counted(size, "byte"));
  uint32_t comprc = 0;
  const int32_t sysrc = xsim_write(options.id, bytes->data(), options.override_lock, &comprc);
  if (sysrc != 0) failed("xsim_write", options.id, sysrc, comprc);
  if (session.json) print_line({{"id", options.id}, {"size", size}, {"value", show_map_value(*bytes, "auto")}});
}

void lock(const Options& options, const char* name, int32_t (*call)(uint32_t, uint32_t*)) {
  uint32_t comprc = 0;
  const int32_t sysrc = call(options.id, &comprc);
  if (sysrc != 0 || comprc != 0) failed(name, options.id, sysrc, comprc);
}

void size(const Options& options, const Session& session) {
  const uint32_t bytes = known_size(options.id);
  if (session.json) return print_line({{"id", options.id}, {"size", bytes}});
  print(std::to_string(bytes) + "\n");
}

// A map that is loaded keeps its values: files are for the next start. So a file is replaced whole or not at all.
void replace_file(const std::string& path, const std::string& bytes) {
  const std::string interim = path + ".new";
  const int fd = open(interim.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) throw Failure(interim + ": " + strerror(errno));
  const ssize_t written = write(fd, bytes.data(), bytes.size());
  int problem = written < 0 ? errno : static_cast<size_t>(written) < bytes.size() ? ENOSPC : 0;
  if (close(fd) != 0 && problem == 0) problem = errno;
  if (problem == 0 && rename(interim.c_str(), path.c_str()) != 0) problem = errno;
  if (problem == 0) return;
  unlink(interim.c_str());
  throw Failure(path + ": " + strerror(problem));
}

void build(const Options& options, const Session& session) {
  const std::vector<uint8_t> text =
      read_to_end(Descriptor(given_path(options.source)).number, options.source, kLargestSource);
  const MapFiles made = build_map({reinterpret_cast<const char*>(text.data()), text.size()});
  if (!made.error.empty()) throw Failure(options.source + ", " + made.error);
  for (const auto& [name, bytes] : made.files) {
    const std::string path = given_path(options.directory) + "/" + name;
    replace_file(path, bytes);
    if (session.json)
      print_line({{"path", path}, {"bytes", bytes.size()}});
    else
      print("Made " + path + ", " + counted(bytes.size(), "byte") + "\n");
  }
}

}  // namespace

void add_sim(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* sim = app.add_subcommand("sim", "The map of system values that all processes share");
  sim->require_subcommand(1);
  const auto add = [&](const char* name, const char* help, bool by_id, auto work) {
    CLI::App* verb = sim->add_subcommand(name, help);
    if (by_id) add_number(*verb, "ID", options->id, "The field's number")->required();
    add_json(*verb, session);
    verb->callback([options, &session, work] { work(*options, session); });
    return verb;
  };
  const auto add_as = [&](CLI::App* verb) {
    verb->add_option("--as", options->as, "Show values as auto, number, text or hex")
        ->check(CLI::IsMember({"auto", "number", "text", "hex"}));
  };
  add_as(add("list", "All fields with their values", false, list));
  add_as(add("get", "A field's value", true, get));
  CLI::App* setter = add("set", "Writes a field", true, set);
  setter->add_option("VALUE", options->value, "A number, \"text\" in double quotes, or hex:PAIRS")->required();
  setter->add_flag("--override", options->override_lock, "Write a locked field too; its lock ends");
  add("lock", "Locks a field against writers without --override", true,
      [](const Options& o, const Session&) { lock(o, "xsim_lock", xsim_lock); });
  add("unlock", "Ends a field's lock", true,
      [](const Options& o, const Session&) { lock(o, "xsim_unlock", xsim_unlock); });
  add("size", "A field's size in bytes", true, size);
  CLI::App* builder = add("build", "Makes the map's files of a readable source", false, build);
  builder->add_option("SOURCE", options->source, "The source, as etc/ywkzsim.txt")->required()->check(not_empty);
  builder->add_option("--out", options->directory, "Directory of the files (else the working directory)")
      ->type_name("DIR")
      ->check(not_empty);
}

}  // namespace plov::ctl
