// The map's files as bytes: what the walk makes of them, good and damaged; the list of Java-served fields.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/data_file.h"
#include "sim/size_file.h"
#include "support/map_file.h"
#include "xsim.h"

using namespace plov::sim;
using test::MapFile;

namespace {

Bytes bytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

struct Loaded {
  uint32_t code;
  std::vector<xsim_entry> array;
  std::string area;
};

Loaded load(int pass, const std::string& data, const std::string& permanent, size_t area_size) {
  Loaded loaded = {0, std::vector<xsim_entry>(8), {}};
  std::vector<uint8_t> area(area_size);
  loaded.code = walk_records(pass, bytes(data), bytes(permanent), loaded.array, area);
  loaded.area.assign(area.begin(), area.end());
  return loaded;
}

std::string entry(const xsim_entry& e) {
  return std::to_string(e.size) + "@" + std::to_string(e.offset) + "/" + std::to_string(e.permanent_offset) + ":" +
         std::to_string(e.flags);
}

TEST(DataFile, FillsArrayAndArea) {
  MapFile file;
  file.add(3, test::kData, "abcd")
      .add(1, test::kPersistent, "PQ")
      .add(2, 0x18 | 5, "", 3)
      .add(8, test::kPermanent, "xyz");
  const Loaded loaded = load(XSIM_TOLVANE, file.data(), file.permanent, 14);
  EXPECT_EQ(loaded.code, 0u);
  EXPECT_EQ(loaded.area, std::string("abcdPQ\0\0\0xyz\0\0", 14));
  EXPECT_EQ(entry(loaded.array[2]), "4@0/0:5");
  EXPECT_EQ(entry(loaded.array[0]), "2@4/6:41") << "type 2, kept, initialized";
  EXPECT_EQ(entry(loaded.array[1]), "3@6/0:117");
  EXPECT_EQ(entry(loaded.array[7]), "3@9/12:9");
  EXPECT_EQ(entry(loaded.array[3]), "0@0/0:0");

  PassSizes sizes;
  EXPECT_TRUE(read_head(XSIM_TOLVANE, bytes(file.data()), &sizes));
  EXPECT_EQ(sizes.field_count, 9);
  EXPECT_EQ(sizes.data_size, 12u);
  EXPECT_EQ(load(XSIM_TOLVANE, file.data(), file.permanent.substr(0, 13), 14).area,
            std::string("abcdPQ\0\0\0x\0\0\0\0", 14));
  MapFile quen;
  quen.add(4000, test::kData, "q").add(4007, test::kData, "r");
  EXPECT_TRUE(read_head(XSIM_QUEN, bytes(quen.data()), &sizes));
  EXPECT_EQ(sizes.field_count, 9);
  EXPECT_EQ(entry(load(XSIM_QUEN, quen.data(), "", 14).array[7]), "1@1/0:5");
}

TEST(DataFile, LimitsAreThoseOfTheLoader) {
  const auto sizes = [](int highest, int data_size, int pass = XSIM_TOLVANE) {
    MapFile file;
    file.highest = highest;
    file.data_size = static_cast<unsigned>(data_size);
    PassSizes result = {};
    EXPECT_TRUE(read_head(pass, bytes(file.data()), &result));
    return result;
  };
  EXPECT_EQ(sizes(4093, 0).array_size(), 65520u);
  EXPECT_FALSE(sizes(4093, 0).too_many_fields());
  EXPECT_TRUE(sizes(4094, 0).too_many_fields());
  EXPECT_TRUE(sizes(-2, 0).too_many_fields());
  EXPECT_TRUE(sizes(-30000, 0).too_many_fields());
  EXPECT_FALSE(sizes(8091, 0, XSIM_QUEN).too_many_fields());
  EXPECT_TRUE(sizes(8093, 0, XSIM_QUEN).too_many_fields());
  EXPECT_TRUE(sizes(100, 0, XSIM_QUEN).too_many_fields());
  EXPECT_FALSE(sizes(99, 64524).too_much_data());
  EXPECT_TRUE(sizes(99, 64525).too_much_data());
  PassSizes none;
  EXPECT_FALSE(read_head(XSIM_TOLVANE, bytes("12345"), &none));
}

TEST(DataFile, DamageGivesACode) {
  const auto code = [](const MapFile& file, size_t cut = 0, size_t area = 14) {
    const std::string data = file.data();
    return load(XSIM_TOLVANE, data.substr(0, data.size() - cut), "", area).code;
  };
  const auto one = [](int id, unsigned type, const std::string& value, int size = -1) {
    return MapFile().add(1, test::kZero, "", 2).add(id, type, value, size);
  };
  EXPECT_EQ(code(one(2, test::kData, "abcd")), 0u);
  EXPECT_EQ(code(one(2, test::kData, "abcd"), 1), XSIM_READ_FAILED);
  EXPECT_EQ(code(one(2, test::kData, "abcd"), 5), XSIM_READ_FAILED) << "a record's head is cut";
  EXPECT_EQ(code(one(2, test::kData, "abcd", 9)), XSIM_READ_FAILED);
  EXPECT_EQ(code(one(0, test::kData, "a")), XSIM_TOO_MANY_FIELDS);
  EXPECT_EQ(code(one(9, test::kData, "a")), XSIM_TOO_MANY_FIELDS);
  EXPECT_EQ(code(one(-5, test::kData, "a")), XSIM_TOO_MANY_FIELDS);
  EXPECT_EQ(code(one(2, test::kZero, "", 12)), 0u);
  EXPECT_EQ(code(one(2, test::kZero, "", 13)), XSIM_TOO_MUCH_DATA);
  EXPECT_EQ(code(one(2, test::kPermanent, "", 13)), XSIM_TOO_MUCH_DATA);
  MapFile negative = one(2, test::kData, "a");
  negative.records[7 + 1] = '\xFF';
  EXPECT_EQ(code(negative), XSIM_TOO_MUCH_DATA);
}

TEST(DataFile, ARecordOfSizeZeroResumesAtItsTypeByte) {
  MapFile file;
  file.add(5, 4, "", 0);
  file.records += std::string("\0\1\0\1X", 5);  // read with the type byte in front: id 4, size 1, type 1, "X"
  const Loaded loaded = load(XSIM_TOLVANE, file.data(), "", 14);
  EXPECT_EQ(loaded.code, 0u);
  EXPECT_EQ(entry(loaded.array[4]), "0@0/0:16") << "size and type are written, storage is not given";
  EXPECT_EQ(entry(loaded.array[3]), "1@0/0:5");
  EXPECT_EQ(loaded.area[0], 'X');
}

TEST(SizeFile, TellsTheFirstLengthOfAnId) {
  const char* const text =
      "# comment 1500 c 9\n\n1\n1500\n1500 c\nx\n 1500 c 8\n1500 c 12\n1501c4\r\n1502\t=\v77 rest\n+1503 - -1\n"
      "1504 c 65536\n1505 c 65535\n99999999999999999999 c 3\n4294968802 c 5\n1506 ## 2\n1507 c 7";
  const std::pair<int, int> cases[] = {{1500, 8}, {1501, 4}, {1502, 77},     {1503, 0}, {1504, 0}, {1505, 65535},
                                       {1506, 0}, {1507, 0}, {INT32_MAX, 0}, {-1, 0},   {1, 0}};
  for (const auto& [id, length] : cases) EXPECT_EQ(listed_length(text, id), length) << id;
  EXPECT_EQ(listed_length("", 0), 0);
}

}  // namespace
