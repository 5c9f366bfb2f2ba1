// The debug allocator: faults are found when a block is freed, traced with both places, and harm nothing.
#include <dirent.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "plovmemdebug.h"
#include "support/child.h"
#include "support/sanitized.h"
#include "support/traced.h"

namespace {

using testing::HasSubstr;

void* take(size_t size) {
  return plovmemdebug_malloc(size, "taken.cpp", 10);
}

void give(void* block) {
  plovmemdebug_free(block, "freed.cpp", 20);
}

struct Held {
  size_t size;
  std::string file;
  int32_t line;
};

std::vector<Held> held() {
  std::vector<Held> list;
  const uint32_t count = plovmemdebug_list(
      [](const void*, size_t size, const char* file, int32_t line, void* context) {
        static_cast<std::vector<Held>*>(context)->push_back({size, file, line});
      },
      &list);
  EXPECT_EQ(count, list.size());
  return list;
}

// What was traced since the last call.
std::string traced() {
  static size_t seen = 0;
  const std::string all = test::traced();
  return all.substr(std::exchange(seen, all.size()));
}

// Writes where the caller must not; a sanitizer would stop the test before the free finds it.
__attribute__((no_sanitize("address"), noinline)) void damage(void* block, ptrdiff_t offset) {
  volatile char* byte = static_cast<char*>(block) + offset;
  *byte = static_cast<char>(*byte ^ 0x55);
}

TEST(DebugAllocator, KnowsSizeAndPlaceOfEveryBlock) {
  void* first = take(100);
  void* second = plovmemdebug_malloc(0, "empty.cpp", 7);
  memset(first, 0xAB, 100);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 8, 0u);
  auto list = held();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].size + list[1].size, 100u);
  EXPECT_EQ(list[list[0].size == 0 ? 0 : 1].file, "empty.cpp");
  first = plovmemdebug_realloc(first, 5000, "grown.cpp", 8);
  EXPECT_EQ(std::string(static_cast<char*>(first), 100), std::string(100, '\xAB'));
  first = plovmemdebug_realloc(first, 3, "shrunk.cpp", 9);
  give(second);
  list = held();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].size, 3u);
  EXPECT_EQ(list[0].file, "shrunk.cpp");
  EXPECT_EQ(list[0].line, 9);
  give(first);
  give(nullptr);
  give(plovmemdebug_realloc(nullptr, 5, "new.cpp", 1));
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), 0u);
  EXPECT_EQ(traced(), "");
}

TEST(DebugAllocator, FindsWritesOutsideABlock) {
  for (size_t size : {1u, 7u, 8u, 64u, 65280u}) {
    for (ptrdiff_t offset :
         {static_cast<ptrdiff_t>(size), static_cast<ptrdiff_t>(size) + 7, ptrdiff_t{-1}, ptrdiff_t{-24}}) {
      void* block = take(size);
      damage(block, offset);
      for (int again = 0; again < 2; ++again) {
        give(block);
        const std::string line = traced();
        EXPECT_THAT(line, HasSubstr("freed.cpp:20"));
        EXPECT_THAT(line, offset > 0 ? HasSubstr("of " + std::to_string(size) + " bytes from taken.cpp:10 was written")
                                     : HasSubstr("was overwritten"));
        EXPECT_EQ(held().size(), 1u) << "not left alone";
      }
      EXPECT_EQ(plovmemdebug_realloc(block, 10, "grown.cpp", 8), nullptr);
      EXPECT_THAT(traced(), HasSubstr("grown.cpp:8"));
      damage(block, offset);
      give(block);
      EXPECT_EQ(traced(), "");
    }
  }
}

TEST(DebugAllocator, FindsDoubleAndWildFrees) {
  void* block = take(64);
  give(block);
  give(block);
  EXPECT_THAT(traced(), HasSubstr("freed.cpp:20: block"));
  EXPECT_EQ(plovmemdebug_realloc(block, 10, "grown.cpp", 8), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_THAT(traced(), HasSubstr("was freed before"));

  char* inside = static_cast<char*>(take(64));
  const uintptr_t top = UINTPTR_MAX & ~uintptr_t{15};
  for (void* wild : {static_cast<void*>(inside + 1), static_cast<void*>(inside + 32), reinterpret_cast<void*>(8),
                     reinterpret_cast<void*>(top + 8), reinterpret_cast<void*>(UINTPTR_MAX)}) {
    give(wild);
    EXPECT_THAT(traced(), HasSubstr("is no block of memory"));
  }
  give(inside);
  EXPECT_EQ(traced(), "");
}

TEST(DebugAllocator, GivesTheCLibraryItsOwn) {
  dirent** entries = nullptr;
  const int count = scandir("/", &entries, nullptr, nullptr);
  ASSERT_GT(count, 2);
  for (int i = 0; i < count; ++i) give(entries[i]);
  void* grown = plovmemdebug_realloc(entries, 1000, "grown.cpp", 8);
  ASSERT_NE(grown, nullptr);
  give(grown);
  EXPECT_EQ(traced(), "");
  EXPECT_TRUE(held().empty());
}

TEST(DebugAllocator, FailsCleanlyWithoutMemory) {
  for (size_t size : {SIZE_MAX, SIZE_MAX - 31, SIZE_MAX / 2}) {
    errno = 0;
    EXPECT_EQ(take(size), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    void* block = take(10);
    memcpy(block, "unchanged", 10);
    EXPECT_EQ(plovmemdebug_realloc(block, size, "grown.cpp", 8), nullptr);
    EXPECT_STREQ(static_cast<char*>(block), "unchanged");
    give(block);
  }
  EXPECT_TRUE(held().empty());
  EXPECT_EQ(traced(), "");
}

TEST(DebugAllocator, ThreadsAndAListerMayMeet) {
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 4; ++seed)
    threads.emplace_back([seed] {
      std::mt19937 random(seed);
      std::vector<std::pair<unsigned char*, size_t>> blocks(100);
      for (int i = 0; i < 20000; i += test::kStep) {
        auto& [block, size] = blocks[random() % blocks.size()];
        for (size_t at = 0; at < size; at += 97) ASSERT_EQ(block[at], seed);
        if (random() % 4 == 0) {
          give(block);
          block = nullptr;
          size = 0;
        } else {
          size = random() % (random() % 64 == 0 ? 200000 : 300);
          block = static_cast<unsigned char*>(plovmemdebug_realloc(block, size, "thread.cpp", 1));
          memset(block, static_cast<int>(seed), size);
        }
      }
      for (auto& [block, size] : blocks) give(block);
    });
  for (int i = 0; i < 20; ++i)
    for (const Held& block : held()) ASSERT_EQ(block.file, "thread.cpp");
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(held().empty());
  EXPECT_EQ(test::in_child([] {
              give(take(10));
              return static_cast<int>(plovmemdebug_list(nullptr, nullptr));
            }),
            0);
}

}  // namespace
