// The strings of the live dictionary entries, for the encoder's search of the longest one at a place of the input.
//
// No string need have its beginnings in the dictionary, so there is no tree to walk down: strings are found by hash, in
// chains. Strings of 2 and of 3 bytes have chains by all their bytes, those of 4 to 8 by their first four, and of text
// few begin with the same four. Longer ones are kept by class of length, class c having 2^c + 1 to 2^(c + 1) bytes, in
// chains by a hash of bytes that all of the class have; a mark for the first eight bytes tells which classes there
// were. Entries come and go without any effect on others.
//
// The search is written twice. At the beginning of a block most of what comes is new, a processor guesses that, and the
// search that stops early wins. With a full dictionary any length is as likely as another, a wrong guess costs more
// than all comparisons, and the search that makes them all without branches wins.
//
// All of it stands here, so that the encoder's loop is compiled as one.
#ifndef PLOV_LOG_CODEC_LIVE_STRINGS_H
#define PLOV_LOG_CODEC_LIVE_STRINGS_H

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <bit>

#include "log/codec/dictionary.h"

namespace plov::codec {

// An entry's string: its first 8 bytes, the lowest first, and a place of the input where it stands.
struct LiveString {
  uint64_t bytes;
  uint32_t at;
  uint32_t length;
};

// The entry found, or the code of the single byte, and its length.
struct Match {
  uint32_t code;
  uint32_t length;
};

// Of 8 bytes, those of a string of each length.
inline constexpr std::array<uint64_t, 9> kBytesMask = [] {
  std::array<uint64_t, 9> masks{};
  for (uint32_t i = 1; i <= 8; ++i) masks[i] = masks[i - 1] << 8 | 0xFF;
  return masks;
}();

class LiveStrings {
 public:
  struct Tables {
    uint16_t* links;   // of each entry the next older one of its chain, then the chains' newest ones; 0 is no entry
    uint16_t* places;  // of each entry the link that holds it
    uint16_t* marks;   // by a hash of the first eight bytes, the classes of the strings there were
    LiveString* strings;
  };

  // Sizes of the tables for an input of `length` bytes.
  static uint32_t entries(uint32_t length) { return std::min(kFirstPair + length, kEntries); }
  static uint32_t links(uint32_t length) { return kEntries + kChains * slots(length); }
  static uint32_t marks(uint32_t length) { return slots(length); }

  LiveStrings(const Tables& tables, const uint8_t* input, uint32_t length)
      : links_(tables.links),
        places_(tables.places),
        marks_(tables.marks),
        strings_(tables.strings),
        input_(input),
        length_(length),
        last_slot_(slots(length) - 1) {
    links_[0] = 0;
    memset(links_ + kEntries, 0, kChains * slots(length) * sizeof(uint16_t));
    memset(marks_, 0, marks(length) * sizeof(uint16_t));
    strings_[0] = {};
  }

  // The newest of the longest live strings that the input spells from `at` on. For a dictionary that is being filled.
  [[gnu::always_inline]] Match longest_while_filling(uint32_t at) const {
    const uint32_t limit = length_ - at;
    if (limit < 8) return walk(at, limit);
    const uint64_t bytes = eight_bytes(at);
    if (const uint32_t classes = marks_[slot(sum(bytes))]; classes != 0) {
      const Match match = look_long(classes, at, limit, bytes);
      if (match.code != 0) return match;
    }
    const uint32_t low = static_cast<uint32_t>(bytes);
    uint32_t best = 0;
    for (uint32_t entry = newest(kFour, low); entry != 0; entry = links_[entry]) best = longer(best, entry, bytes);
    if (best != 0) return {best % kOne, best / kOne};
    for (uint32_t entry = newest(kThree, low & 0xFFFFFF); entry != 0; entry = links_[entry])
      if (((strings_[entry].bytes ^ bytes) & kBytesMask[3]) == 0) return {entry, 3};
    for (uint32_t entry = newest(kTwo, low & 0xFFFF); entry != 0; entry = links_[entry])
      if (((strings_[entry].bytes ^ bytes) & kBytesMask[2]) == 0) return {entry, 2};
    return {(low & 0xFF) + 1, 1};
  }

  // The same, for a full dictionary.
  [[gnu::always_inline]] Match longest(uint32_t at) const {
    const uint32_t limit = length_ - at;
    if (limit < 8) return walk(at, limit);
    const uint64_t bytes = eight_bytes(at);
    // Marks are never taken back; of the first class, which most long strings are of, the chain itself tells.
    const uint32_t hashed = sum(bytes), classes = marks_[slot(hashed)], first = links_[chain(kLong, hashed)];
    if ((static_cast<uint32_t>(strings_[first].bytes == bytes) | links_[first] | classes >> 4) != 0) {
      const Match match = look_long(classes, at, limit, bytes);
      if (match.code != 0) return match;
    }
    const uint32_t low = static_cast<uint32_t>(bytes);
    const uint32_t two = newest(kTwo, low & 0xFFFF), three = newest(kThree, low & 0xFFFFFF), four = newest(kFour, low);
    uint32_t best = (low & 0xFF) + 1 + kOne;
    best = longer(best, two, bytes);
    uint32_t missed = links_[two] & -static_cast<uint32_t>(best < 2 * kOne);
    best = longer(best, three, bytes);
    missed |= links_[three] & -static_cast<uint32_t>(best < 3 * kOne);
    best = longer(best, four, bytes);
    const uint32_t next = links_[four];
    best = longer(best, next, bytes);
    // Others of the same hash may have hidden what is looked for.
    if (missed != 0) [[unlikely]]
      return walk(at, 8);
    for (uint32_t entry = links_[next]; entry != 0; entry = links_[entry]) best = longer(best, entry, bytes);
    return {best % kOne, best / kOne};
  }

  // Enters an entry that spells `length` bytes from `at` on.
  [[gnu::always_inline]] void insert(uint32_t entry, uint32_t at, uint32_t length) {
    static constexpr uint8_t kKind[9] = {0, 0, kTwo, kThree, kFour, kFour, kFour, kFour, kFour};
    const uint64_t bytes = next_bytes(at);
    uint32_t place;
    if (length > 8) {
      const uint32_t size = class_of(length);
      marks_[slot(sum(bytes))] |= static_cast<uint16_t>(1u << size);
      place = chain(kLong, class_hash(size, at, bytes));
    } else {
      place = chain(kKind[length], hash(static_cast<uint32_t>(bytes & kBytesMask[std::min(length, 4u)])));
    }
    const uint16_t older = links_[place];
    strings_[entry] = {bytes, at, length};
    links_[entry] = older;
    places_[entry] = static_cast<uint16_t>(place);
    places_[older] = static_cast<uint16_t>(entry);
    links_[place] = static_cast<uint16_t>(entry);
  }

  [[gnu::always_inline]] void remove(uint32_t entry) {
    const uint16_t older = links_[entry], place = places_[entry];
    links_[place] = older;
    places_[older] = place;
  }

 private:
  enum Kind : uint8_t { kTwo, kThree, kFour, kLong, kChains };
  static constexpr uint32_t kLastClass = 15;
  static constexpr uint32_t kOne = 0x10000;  // a match in one word: its code and, so many times, its length

  static uint32_t slots(uint32_t length) {
    return std::bit_ceil(std::clamp(2 * std::min(length, kEntries), 256u, kEntries));
  }

  static uint32_t class_of(uint32_t length) {
    return std::min(static_cast<uint32_t>(std::bit_width(length - 1)) - 1, kLastClass);
  }

  static uint32_t hash(uint32_t key) { return key * 0x9E3779B1; }
  uint32_t slot(uint32_t hash) const { return hash >> 20 & last_slot_; }
  uint32_t chain(uint32_t kind, uint32_t hash) const { return kEntries + slot(hash) * kChains + kind; }
  uint32_t newest(Kind kind, uint32_t key) const { return links_[chain(kind, hash(key))]; }

  static uint32_t sum(uint64_t bytes) {
    return static_cast<uint32_t>(bytes) * 0x85EBCA77 + static_cast<uint32_t>(bytes >> 32) * 0xC2B2AE3D;
  }

  // Of the strings of a class that begin as the input does at `at`, with `bytes`.
  uint32_t class_hash(uint32_t size, uint32_t at, uint64_t bytes) const {
    return size <= 3 ? sum(bytes) : sum(bytes) + sum(eight_bytes(at + (1u << size) - 7)) * 0x27D4EB2F;
  }

  uint64_t eight_bytes(uint32_t at) const {
    uint64_t bytes;
    memcpy(&bytes, input_ + at, 8);
    return bytes;
  }

  // 8 bytes of the input; zeros behind its end.
  uint64_t next_bytes(uint32_t at) const {
    const uint32_t limit = length_ - at;
    if (limit >= 8) return eight_bytes(at);
    if (length_ >= 8) return eight_bytes(length_ - 8) >> (64 - 8 * limit);
    uint64_t bytes = 0;
    memcpy(&bytes, input_ + at, limit);
    return bytes;
  }

  // The entry of up to 8 bytes if it matches and is longer than `best`, else that.
  [[gnu::always_inline]] uint32_t longer(uint32_t best, uint32_t entry, uint64_t bytes) const {
    const LiveString& string = strings_[entry];
    const uint32_t length = string.length * kOne;
    const uint32_t better = static_cast<uint32_t>(((string.bytes ^ bytes) & kBytesMask[string.length]) == 0) &
                            static_cast<uint32_t>(length > best);
    return best ^ ((best ^ (length + entry)) & -better);
  }

  // The longest match of 9 bytes or more; else code 0.
  [[gnu::noinline]] Match look_long(uint32_t classes, uint32_t at, uint32_t limit, uint64_t bytes) const {
    Match best{0, 0};
    while (classes != 0 && best.length < 1u << std::bit_width(classes)) {
      const uint32_t top = static_cast<uint32_t>(std::bit_width(classes)) - 1;
      classes ^= 1u << top;
      if (limit <= 1u << top) continue;
      for (uint32_t entry = links_[chain(kLong, class_hash(top, at, bytes))]; entry != 0; entry = links_[entry]) {
        const LiveString& string = strings_[entry];
        if (string.bytes == bytes && string.length > best.length && string.length <= limit &&
            memcmp(input_ + string.at + 8, input_ + at + 8, string.length - 8) == 0)
          best = {entry, string.length};
      }
    }
    return best;
  }

  // The longest match of up to `limit` bytes, which are 8 at most, in the chains' whole length.
  [[gnu::noinline]] Match walk(uint32_t at, uint32_t limit) const {
    const uint64_t bytes = next_bytes(at);
    const uint32_t low = static_cast<uint32_t>(bytes);
    uint32_t best = (low & 0xFF) + 1 + kOne;
    for (const uint32_t first : {newest(kTwo, low & 0xFFFF), newest(kThree, low & 0xFFFFFF), newest(kFour, low)})
      for (uint32_t entry = first; entry != 0; entry = links_[entry])
        if (strings_[entry].length <= limit) best = longer(best, entry, bytes);
    return {best % kOne, best / kOne};
  }

  uint16_t* const links_;
  uint16_t* const places_;
  uint16_t* const marks_;
  LiveString* const strings_;
  const uint8_t* const input_;
  const uint32_t length_, last_slot_;
};

}  // namespace plov::codec

#endif
