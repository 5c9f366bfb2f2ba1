// Memory of every kind that a caller may hand over by mistake.
#ifndef PLOV_TESTS_PAGES_H
#define PLOV_TESTS_PAGES_H

#include <stddef.h>
#include <stdint.h>

namespace test {

inline constexpr size_t kPage = 4096;

// `count` mapped pages with `protection`, an unmapped page before and behind them; unmapped at the end.
class Pages {
 public:
  Pages(size_t count, int protection);
  ~Pages();
  Pages(const Pages&) = delete;
  Pages& operator=(const Pages&) = delete;

  uint8_t* begin() const { return start_; }
  uint8_t* end() const { return start_ + count_ * kPage; }  // the first byte of the hole
  void protect(size_t page, int protection);

 private:
  uint8_t* start_;
  size_t count_;
};

}  // namespace test

#endif
