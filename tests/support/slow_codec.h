// The block codec a second time, slow and obvious: entries hold their whole strings, searches look at all of them.
#ifndef PLOV_TESTS_SLOW_CODEC_H
#define PLOV_TESTS_SLOW_CODEC_H

#include <stdint.h>

#include <string>
#include <vector>

namespace test {

// The codes of an encoded block with their end codes, and the block of such codes.
std::vector<unsigned> slow_codes(const std::string& data);
std::string slow_pack(const std::vector<unsigned>& codes);
std::string slow_encode(const std::string& data);

struct SlowExpanded {
  bool whole;  // the block did not end early
  std::string data;
};
SlowExpanded slow_decode(const std::string& block, size_t capacity);

// Inputs of every kind, each determined by its number: runs, random bytes, few letters, repeated pieces, text.
std::string sample(unsigned number, size_t length);

}  // namespace test

#endif
