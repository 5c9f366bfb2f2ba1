#include "support/slow_codec.h"

#include <list>
#include <random>

namespace test {
namespace {

struct Entry {
  bool live = false;
  unsigned left = 0, right = 0, references = 0;
  unsigned long born = 0;
  std::string string;
};

class SlowDictionary {
 public:
  SlowDictionary() : entries_(4096) {
    for (unsigned byte = 0; byte < 256; ++byte) entries_[byte + 1].string = std::string(1, static_cast<char>(byte));
    for (unsigned code = 0; code < 258; ++code) {
      entries_[code].live = true;
      entries_[code].references = 1;
    }
    for (unsigned code = 258; code < 4096; ++code) free_.push_back(code);
  }

  const Entry& operator[](unsigned code) const { return entries_[code]; }

  void recycle_if_full() {
    if (!free_.empty()) return;
    const unsigned oldest = unreferenced_.front();
    unreferenced_.pop_front();
    entries_[oldest].live = false;
    drop(entries_[oldest].left);
    drop(entries_[oldest].right);
    free_.push_back(oldest);
  }

  void make(unsigned left, unsigned right) {
    const unsigned code = free_.front();
    free_.pop_front();
    entries_[code] = {true, left, right, 0, ++clock_, entries_[left].string + entries_[right].string};
    take(left);
    take(right);
    unreferenced_.push_back(code);
  }

  // The longest live string at the place, of equal ones the newest.
  unsigned longest(const std::string& data, size_t at) const {
    unsigned best = static_cast<unsigned char>(data[at]) + 1u;
    for (unsigned code = 258; code < 4096; ++code) {
      const Entry &entry = entries_[code], &found = entries_[best];
      if (!entry.live || entry.string.size() < found.string.size()) continue;
      if (entry.string.size() == found.string.size() && entry.born < found.born) continue;
      if (data.compare(at, entry.string.size(), entry.string) == 0) best = code;
    }
    return best;
  }

 private:
  void take(unsigned code) {
    if (entries_[code].references++ == 0) unreferenced_.remove(code);
  }
  void drop(unsigned code) {
    if (--entries_[code].references == 0) unreferenced_.push_back(code);
  }

  std::vector<Entry> entries_;
  std::list<unsigned> free_, unreferenced_;
  unsigned long clock_ = 0;
};

}  // namespace

std::vector<unsigned> slow_codes(const std::string& data) {
  SlowDictionary dictionary;
  std::vector<unsigned> codes;
  for (size_t at = 0; at < data.size();) {
    if (!codes.empty()) dictionary.recycle_if_full();
    const unsigned code = dictionary.longest(data, at);
    at += dictionary[code].string.size();
    if (!codes.empty()) dictionary.make(codes.back(), code);
    codes.push_back(code);
  }
  codes.insert(codes.end(), 4, 0);
  return codes;
}

std::string slow_pack(const std::vector<unsigned>& codes) {
  std::string block("\5\1\4\0........", 12);
  for (size_t i = 0; i + 1 < codes.size(); i += 2) {
    const unsigned both = codes[i] << 12 | codes[i + 1];
    for (int shift = 16; shift >= 0; shift -= 8) block += static_cast<char>(both >> shift);
  }
  return block;
}

std::string slow_encode(const std::string& data) {
  return slow_pack(slow_codes(data));
}

SlowExpanded slow_decode(const std::string& block, size_t capacity) {
  std::vector<unsigned> codes;
  for (size_t bit = 12 * 8; bit + 12 <= block.size() * 8; bit += 12) {
    unsigned code = 0;
    for (size_t i = bit; i < bit + 12; ++i)
      code = code << 1 | (static_cast<unsigned char>(block[i / 8]) >> (7 - i % 8) & 1u);
    codes.push_back(code);
  }
  SlowDictionary dictionary;
  SlowExpanded result{true, ""};
  for (size_t i = 0; i < codes.size() && codes[i] != 0; ++i) {
    if (i > 0) dictionary.recycle_if_full();
    if (!dictionary[codes[i]].live) return {false, result.data};
    result.data += dictionary[codes[i]].string;
    if (result.data.size() > capacity) return {false, result.data.substr(0, capacity)};
    if (i > 0) dictionary.make(codes[i - 1], codes[i]);
  }
  return result;
}

std::string sample(unsigned number, size_t length) {
  std::mt19937 random(number);
  static const char* const kWords[] = {"power ",        "fan 3 ", "event ", "0x00",
                                       " failed with ", "\n",     "rc = ",  "XLOG   F: "};
  const unsigned letters = 1u << (1 + number / 5 % 4);  // 2, 4, 8, 16
  std::string data;
  while (data.size() < length) {
    const unsigned value = random();
    switch (number % 5) {
      case 0:  // a run, broken seldom
        data.append(value % 2000 + 1, value % 7 == 0 ? 'b' : 'a');
        break;
      case 1:
        data += static_cast<char>(value);
        break;
      case 2:  // few letters
        data += static_cast<char>('a' + value % letters);
        break;
      case 3:  // pieces of what is there already
        if (data.size() < 3 || value % 8 == 0)
          data += static_cast<char>('a' + value / 8 % letters);
        else
          data += data.substr(value / 8 % data.size(), value % 97);
        break;
      default:
        data += kWords[value % 8];
        if (value % 3 == 0) data += std::to_string(value % 1000);
    }
  }
  data.resize(length);
  return data;
}

}  // namespace test
