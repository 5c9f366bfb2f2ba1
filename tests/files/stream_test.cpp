// Opening, reading, writing, closing, deleting.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/codes.h"
#include "support/files.h"
#include "xdfc.h"

using test::Codes;
using test::codes;

namespace {

// The caller's handle variable, with the memory around it that xdfc_search_file_open probes.
union Handle {
  FILE* stream;
  char room[sizeof(FILE)];
};

struct Opened {
  Codes codes;
  uint32_t action;
  std::string mode;  // what the stream's descriptor allows
  std::string contents;
  bool operator==(const Opened&) const = default;
};

Opened open_by_flags(const char* name, uint32_t flags, int32_t access) {
  Handle handle = {};
  Opened o = {};
  o.codes = codes(xdfc_search_file_open, name, 0, access, flags, 0, &handle.stream, &o.action);
  if (handle.stream) {
    const int kind = fcntl(fileno(handle.stream), F_GETFL) & O_ACCMODE;
    o.mode = kind == O_RDWR ? "rw" : kind == O_RDONLY ? "r" : "w";
    EXPECT_EQ(fcntl(fileno(handle.stream), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(codes(xdfc_close_file, handle.stream), Codes(0, 0));
  }
  o.contents = test::exists("data/f") ? test::read_file("data/f") : "none";
  return o;
}

FILE* open_stream(const char* name, const char* mode) {
  FILE* stream = nullptr;
  EXPECT_EQ(codes(xdfc_search_file_open2, name, mode, &stream), Codes(0, 0));
  return stream;
}

TEST(Open, FlagsDecide) {
  test::write_file("ywkddfc.trm", "f */data/ C\n");
  constexpr uint32_t kOpen = XDFC_E_OPEN, kReplace = XDFC_E_REPLACE, kCreate = XDFC_DE_CREAT;
  const struct {
    bool exists;
    uint32_t flags;
    int32_t access;
    Opened expected;
  } cases[] = {
      {true, 0, 0, {{2, 22}, 0, "", "old"}},
      {true, kCreate, 0, {{2, 22}, 0, "", "old"}},
      {true, kOpen, 0, {{0, 0}, 1, "rw", "old"}},
      {true, kOpen, 3, {{0, 0}, 1, "r", "old"}},
      {true, kReplace, 0, {{0, 0}, 1, "rw", "old"}},
      {true, kCreate | kReplace, 0, {{0, 0}, 1, "rw", ""}},
      {true, kCreate | kReplace, 1, {{0, 0}, 1, "w", ""}},
      {true, kCreate | kOpen, 2, {{0, 0}, 1, "rw", "old"}},
      {true, kCreate | kOpen | kReplace, 0, {{0, 0}, 1, "rw", "old"}},
      {false, 0, 0, {{2, 2}, 0, "", "none"}},
      {false, kOpen | kReplace, 0, {{2, 2}, 0, "", "none"}},
      {false, kCreate, 0, {{0, 0}, 2, "rw", ""}},
      {false, kCreate | kOpen, 1, {{0, 0}, 2, "w", ""}},
  };
  mkdir("data", 0755);
  for (const auto& c : cases) {
    unlink("data/f");
    if (c.exists) test::write_file("data/f", "old");
    EXPECT_EQ(open_by_flags("f", c.flags, c.access), c.expected) << c.exists << " " << c.flags << " " << c.access;
  }
  EXPECT_EQ(open_by_flags("not in the table", kOpen, 0).codes, Codes(2, XDFC_NO_ENTRY));
  EXPECT_EQ(open_by_flags("!data/f", kOpen, 0).codes, Codes(0, 0));
}

TEST(Open, FailuresAndBadArguments) {
  Handle handle;
  const auto open2 = [&](const std::string& name, const char* mode) {
    return codes(xdfc_search_file_open2, name.c_str(), mode, &handle.stream);
  };
  EXPECT_EQ(open2("!none", "r"), Codes(2, ENOENT));
  EXPECT_EQ(handle.stream, nullptr);
  EXPECT_EQ(open2("!.", "w"), Codes(2, EISDIR));
  EXPECT_EQ(open2("!" + std::string(4096, '/'), "r"), Codes(2, ENAMETOOLONG));
  EXPECT_EQ(open2(std::string(300, 'a'), "r"), Codes(2, XDFC_NO_ENTRY));
  EXPECT_EQ(open2("!none", nullptr), Codes(2, XDFC_BAD_ARGUMENT_2));
  FILE** const nowhere = nullptr;
  uint32_t* const no_action = nullptr;
  EXPECT_EQ(codes(xdfc_search_file_open, "!none", 0, 0, 0, 0, nowhere, no_action), Codes(2, XDFC_BAD_ARGUMENT_2));
  EXPECT_EQ(codes(xdfc_search_file_open, "!none", 0, 0, 0, 0, &handle.stream, no_action),
            Codes(2, XDFC_BAD_ARGUMENT_3));
}

TEST(Transfer, CountsItems) {
  FILE* const stream = open_stream("!f", "w+");
  int32_t done = -1;
  char buffer[8] = {};
  EXPECT_EQ(codes(xdfc_write, "abcdefg", 2, 3, stream, &done), Codes(0, 0));
  EXPECT_EQ(done, 3);
  rewind(stream);
  EXPECT_EQ(codes(xdfc_read, buffer, 4, 1, stream, &done), Codes(0, 0));
  EXPECT_EQ(done, 1);
  EXPECT_EQ(codes(xdfc_read, buffer, 1, 4, stream, &done), Codes(2, XDFC_END_OF_FILE));
  EXPECT_EQ(done, 2);
  EXPECT_STREQ(buffer, "efcd");
  EXPECT_EQ(codes(xdfc_read, buffer, 1, 0, stream, &done), Codes(0, 0));
  fclose(stream);
}

TEST(Transfer, ErrorsOfTheStreamAndFullDisks) {
  int32_t done = -1;
  uint32_t count, position;
  char block[20000] = {};
  FILE* stream = open_stream("!/dev/full", "w");
  EXPECT_EQ(codes(xdfc_write, block, 1, sizeof block, stream, &done), Codes(2, XDFC_DISK_FULL));
  EXPECT_LT(done, static_cast<int32_t>(sizeof block));
  fclose(stream);
  stream = open_stream("!/dev/full", "w");
  EXPECT_EQ(codes(xdfc_random_write, stream, block, sizeof block, 0, 0, &count, &position), Codes(2, XDFC_DISK_FULL));
  fclose(stream);
  // What the C library still holds is lost at the close, and the close says so.
  stream = open_stream("!/dev/full", "w");
  EXPECT_EQ(codes(xdfc_write, block, 1, 10, stream, &done), Codes(0, 0));
  EXPECT_EQ(codes(xdfc_close_file, stream), Codes(2, ENOSPC));

  stream = open_stream("!f", "w");
  EXPECT_EQ(codes(xdfc_read, block, 1, 1, stream, &done), Codes(2, EBADF));
  EXPECT_EQ(codes(xdfc_random_read, stream, block, 1, 0, 0, &count, &position), Codes(2, EBADF));
  fclose(stream);
  stream = open_stream("!f", "r");
  EXPECT_EQ(codes(xdfc_write, block, 1, 1, stream, &done), Codes(2, EBADF));
  EXPECT_EQ(codes(xdfc_random_write, stream, block, 1, 0, 0, &count, &position), Codes(2, EBADF));
  fclose(stream);
}

TEST(Positioned, SeeksFromEachReferencePoint) {
  test::write_file("f", "0123456789");
  FILE* const stream = open_stream("!f", "r+");
  const struct {
    int32_t refpoint;
    long offset;
    size_t length;
    std::string got;
    uint32_t newpos;
  } cases[] = {
      {0, 2, 3, "234", 5}, {1, 1, 2, "67", 8}, {2, -4, 3, "678", 9}, {7, 1, 1, "1", 2},
      {2, -1, 5, "9", 10}, {2, 0, 5, "", 10},  {0, 50, 5, "", 50},   {-1, 0, 0, "", 0},
  };
  char buffer[8];
  uint32_t done, newpos;
  for (const auto& c : cases) {
    done = newpos = 77;
    EXPECT_EQ(codes(xdfc_random_read, stream, buffer, c.length, c.refpoint, c.offset, &done, &newpos), Codes(0, 0));
    EXPECT_EQ(std::string(buffer, done), c.got) << c.refpoint << " " << c.offset;
    EXPECT_EQ(newpos, c.newpos) << c.refpoint << " " << c.offset;
  }
  EXPECT_EQ(codes(xdfc_random_write, stream, "xy", 2, 2, -1, &done, &newpos), Codes(0, 0));
  EXPECT_EQ(done, 2u);
  EXPECT_EQ(newpos, 11u);
  EXPECT_EQ(codes(xdfc_random_write, stream, "z", 1, 9, 0, &done, &newpos), Codes(0, 0));
  EXPECT_EQ(newpos, 1u);
  EXPECT_EQ(codes(xdfc_random_write, stream, "z", 1, 0, -1, &done, &newpos), Codes(2, EINVAL));
  EXPECT_EQ(codes(xdfc_random_read, stream, buffer, 1, 1, -5, &done, &newpos), Codes(2, EINVAL));
  fclose(stream);
  EXPECT_EQ(test::read_file("f"), "z12345678xy");
}

TEST(Delete, RemovesAFile) {
  test::write_file("f", "");
  mkdir("d", 0755);
  EXPECT_EQ(codes(xdfc_delete_file, "!f"), Codes(0, 0));
  EXPECT_FALSE(test::exists("f"));
  EXPECT_EQ(codes(xdfc_delete_file, "!f"), Codes(2, ENOENT));
  EXPECT_EQ(codes(xdfc_delete_file, "!d"), Codes(2, EISDIR));
}

}  // namespace
