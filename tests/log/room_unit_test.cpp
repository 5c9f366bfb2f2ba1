// The pure halves of making room: which copy goes, what is kept, how much is wanted.
#include <gtest/gtest.h>

#include "log/maintain/retention.h"
#include "log/maintain/slot.h"
#include "log/maintain/tally.h"

using namespace plov::log;

namespace {

TEST(SlotChoice, TakesTheOldestUnlessItIsYoungerThanADay) {
  constexpr time_t kNow = 10'000'000, kDay = 86400;
  const auto chosen = [](std::initializer_list<time_t> ages) {
    SlotChoice choice;
    int slot = 0;
    for (const time_t age : ages) choice.see(slot++, kNow - age);
    return choice.choose(kNow);
  };
  EXPECT_EQ(chosen({3 * kDay, 2 * kDay, kDay}), 0);
  EXPECT_EQ(chosen({10, 30, 20}), 2) << "the second oldest";
  EXPECT_EQ(chosen({10, 20, 30}), 1);
  EXPECT_EQ(chosen({kDay + 1, kDay, 5}), 0);
  EXPECT_EQ(chosen({kDay, kDay - 1, 5}), 0) << "a day old to the second";
  EXPECT_EQ(chosen({kDay - 1, 7, 7}), 1);
  EXPECT_EQ(chosen({7, 7}), 1);
  EXPECT_EQ(chosen({5}), 0) << "with one slot, that slot";
  EXPECT_EQ(chosen({}), -1);
}

TEST(Retention, ATypeLineOverridesItsClassLine) {
  xlog_type_record high = {0x02, 5, 9, nullptr}, low = {0x01, 7, 0, &high};
  xlog_class_record record = {0x10, 40, 2, &low, nullptr};
  const xlog_configuration configuration = {0, 0, 0, 0, 0, 100, 0, &record};
  const Retention listed = retention_of(0x10, configuration), other = retention_of(0x11, configuration);
  const auto rule = [](const Retention::Rule& r) { return std::make_pair(+r.keep, +r.priority); };
  EXPECT_EQ(rule(listed.types[0]), std::make_pair(40, 2));
  EXPECT_EQ(rule(listed.types[1]), std::make_pair(7, 0));
  EXPECT_EQ(rule(listed.types[2]), std::make_pair(5, 3)) << "a priority above 3 counts as 3";
  EXPECT_EQ(rule(other.types[1]), std::make_pair(100, 0));
}

TEST(Spread, FillsThePrioritiesInOrder) {
  const auto amounts = [](uint64_t deleted, uint64_t kept0, uint64_t kept1, uint64_t kept2) {
    const xlog_stage_result result = spread({deleted, {kept0, kept1, kept2}}, 10);
    return std::vector<int32_t>(result.bytes_to_delete, result.bytes_to_delete + 4);
  };
  EXPECT_EQ(amounts(240, 20000, 1, 1), (std::vector<int32_t>{10000, 0, 0, 0}));
  EXPECT_EQ(amounts(240, 4000, 5000, 700), (std::vector<int32_t>{4000, 5000, 700, 300}));
  EXPECT_EQ(amounts(10240, 9, 9, 9), (std::vector<int32_t>{0, 0, 0, 0}));
}

}  // namespace
