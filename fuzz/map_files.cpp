// The map's files: arbitrary bytes as data file, permanent file, list of Java-served fields, and as the readable
// source. Nothing is read or written outside, array and area become what the straightforward reading below finds, and
// what the source makes a loader takes.
//
// Input: one byte for the pass, two bytes of length of the data file, the data file, the rest.
#include <stdio.h>

#include <string>
#include <vector>

#include "fuzz/support.h"
#include "sim/data_file.h"
#include "sim/size_file.h"
#include "tools/plovctl/map_source.h"
#include "xsim.h"

using namespace plov;

namespace {

using sim::Bytes;

std::string text_of(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

int word(const std::string& file, size_t at) {
  return static_cast<int16_t>(static_cast<uint8_t>(file[at]) | static_cast<uint8_t>(file[at + 1]) << 8);
}

struct Map {
  std::vector<xsim_entry> array;
  std::string area;
};

// Record by record, values as strings.
uint32_t read_by_record(int pass, const std::string& data, std::string permanent, size_t slots, size_t room, Map* map) {
  map->array.resize(slots);
  permanent.resize(permanent.size() + 0x20000);  // what it does not have is zero
  size_t kept = 2;
  for (size_t at = 6; at < data.size();) {
    if (data.size() - at < 5) return XSIM_READ_FAILED;
    const int slot = word(data, at) - (pass == XSIM_QUEN ? 4000 : 1), size = word(data, at + 2);
    if (slot < 0 || static_cast<size_t>(slot) >= slots) return XSIM_TOO_MANY_FIELDS;
    if (size < 0) return XSIM_TOO_MUCH_DATA;
    const auto length = static_cast<size_t>(size);
    const uint8_t type = static_cast<uint8_t>(data[at + 4]) & 0x1F;
    xsim_entry& entry = map->array[static_cast<size_t>(slot)];
    entry.size = static_cast<uint32_t>(size);
    entry.flags = static_cast<uint8_t>((entry.flags & 1) | type << 2);
    if (size == 0) {
      at += 4;
      continue;
    }
    at += 5;
    if (map->area.size() + length > room) return XSIM_TOO_MUCH_DATA;
    entry.flags |= 1;
    entry.offset = static_cast<uint32_t>(map->area.size());
    std::string value(length, '\0');
    if ((type & 7) == 1) {
      if (at + length > data.size()) return XSIM_READ_FAILED;
      value = data.substr(at, length);
      at += length;
    } else if ((type & 7) == 2) {
      entry.permanent_offset = static_cast<uint32_t>(kept + 4);
      if (kept + 4 < permanent.size()) value = permanent.substr(kept + 4, length);
      value.resize(length);
      kept += 4 + length;
    }
    map->area += value;
  }
  map->area.resize(room);
  return 0;
}

// Loads as a first process does, into memory of exactly the segments' sizes. False when the loader would refuse.
bool load(int pass, Bytes data, Bytes permanent) {
  sim::PassSizes sizes;
  if (!sim::read_head(pass, data, &sizes) || sizes.too_many_fields() || sizes.too_much_data()) return false;
  const int highest = word(text_of(data), 2);
  require(sizes.field_count == (pass == XSIM_QUEN ? highest - 3998 : highest + 1));
  std::vector<xsim_entry> array(sizes.array_segment() / sizeof(xsim_entry));
  const auto area = std::make_unique<uint8_t[]>(sizes.data_segment());
  const uint32_t code = sim::walk_records(pass, data, permanent, array, {area.get(), sizes.data_segment()});
  Map expected;
  require(code ==
          read_by_record(pass, text_of(data), text_of(permanent), array.size(), sizes.data_segment(), &expected));
  if (code != 0) return false;
  require(memcmp(array.data(), expected.array.data(), array.size() * sizeof(xsim_entry)) == 0);
  require(memcmp(area.get(), expected.area.data(), expected.area.size()) == 0);
  return true;
}

// The list of sizes, line by line through scanf, for numbers that fit.
int32_t scanned_length(const std::string& text, int32_t id) {
  size_t at = 0;
  for (size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
    const std::string line = text.substr(at, end - at);
    int listed, length;
    char c;
    if (line.size() <= 1 || line[0] == '#' || sscanf(line.c_str(), "%d %c %d", &listed, &c, &length) != 3) continue;
    if (listed == id) return length >= 1 && length <= 65535 ? length : 0;
  }
  return 0;
}

bool has_long_number(const std::string& text) {
  size_t digits = 0;
  for (char c : text)
    if ((digits = c >= '0' && c <= '9' ? digits + 1 : 0) > 9) return true;
  return false;
}

void build_and_load(std::string_view source) {
  const ctl::MapFiles made = ctl::build_map(source);
  if (!made.error.empty()) return;
  const auto bytes = [&](const char* name) {
    const std::string& file = made.files.at(name);
    return Bytes{reinterpret_cast<const uint8_t*>(file.data()), file.size()};
  };
  require(load(XSIM_TOLVANE, bytes("ywkzsim.dat"), bytes("ywkzspr.dat")));
  if (made.files.count("kvdzsim.dat")) require(load(XSIM_QUEN, bytes("kvdzsim.dat"), bytes("kvdzspr.dat")));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const int pass = data[0] & 1;
  const size_t wanted = data[1] | data[2] << 8, length = wanted < size - 3 ? wanted : size - 3;
  const auto data_file = exact(data + 3, length), rest = exact(data + 3 + length, size - 3 - length);
  load(pass, {data_file.get(), length}, {rest.get(), size - 3 - length});

  const std::string text(reinterpret_cast<const char*>(rest.get()), size - 3 - length);
  for (const int32_t id : {1500, 1, 0, -1}) {
    const int32_t found = sim::listed_length({reinterpret_cast<const char*>(rest.get()), text.size()}, id);
    require(found >= 0 && found <= 65535);
    if (!has_long_number(text)) require(found == scanned_length(text, id));
  }
  build_and_load({reinterpret_cast<const char*>(rest.get()), text.size()});
  return 0;
}
