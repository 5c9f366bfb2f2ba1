// The dictionary's order of recycling, which encoder and decoder keep alike step by step: nothing but codes is stored.
//
// Each step after the first makes one entry, the pair (previous code, this code). The first 3838 steps use the entries
// 258 to 4095 in turn; each later step takes the entry that has been without a reference for the longest time, where
// each live pair refers to its two codes.
#ifndef PLOV_LOG_CODEC_DICTIONARY_H
#define PLOV_LOG_CODEC_DICTIONARY_H

#include <stdint.h>

namespace plov::codec {

inline constexpr uint32_t kEnd = 0;
inline constexpr uint32_t kSilent = 257;
inline constexpr uint32_t kFirstPair = 258;
inline constexpr uint32_t kEntries = 4096;
inline constexpr uint32_t kPairs = kEntries - kFirstPair;

// The list of entries without a reference is a queue that an entry enters when it loses its last one. It does not leave
// when it is referred to again; its place is passed over later, for being in use or for no longer being its newest.
//
// An entry is always found: the pair of the step before is in the queue. That pair also keeps the previous code in use,
// so no step recycles the code it is about to refer to. And the queue never overruns: each step takes out an entry that
// was in it, of which there are at most 3838, and brings in at most three.
struct Dictionary {
  static constexpr uint32_t kPlaces = 16384;
  static_assert(kPlaces >= 3 * (kPairs + 1));

  struct Entry {
    uint16_t left, right;
    uint16_t references;  // a literal has one more than there are, so that it is never recycled
    uint16_t place;       // its newest in the queue
  };

  // Brings the dictionary to the state after the first 3838 pairs, made of the first 3839 codes. Until then nothing is
  // recycled, so there is nothing to keep; most blocks end before.
  void fill(const uint16_t* codes) {
    for (uint32_t i = 0; i < kFirstPair; ++i) entries[i] = {0, 0, 1, 0};
    oldest = newest = 0;
    for (uint32_t i = 0; i < kPairs; ++i) {
      entries[kFirstPair + i] = {codes[i], codes[i + 1], 0, 0};
      enqueue(kFirstPair + i, true);
    }
    for (uint32_t i = 0; i < kPairs; ++i) {
      ++entries[codes[i]].references;
      ++entries[codes[i + 1]].references;
    }
  }

  // Frees the entry that is due; it is make()'s next.
  uint32_t recycle() {
    uint32_t entry;
    do {
      entry = queue[oldest];
      oldest = (oldest + 1) % kPlaces;
    } while ((((entries[entry].place + 1) % kPlaces ^ oldest) | entries[entry].references) != 0);
    drop(entries[entry].left);
    drop(entries[entry].right);
    return entry;
  }

  void make(uint32_t entry, uint32_t left, uint32_t right) {
    entries[entry].left = static_cast<uint16_t>(left);
    entries[entry].right = static_cast<uint16_t>(right);
    ++entries[left].references;
    ++entries[right].references;
    enqueue(entry, true);
  }

  void drop(uint32_t entry) { enqueue(entry, --entries[entry].references == 0); }

  // Whether it is due is as good as random, hence no branch: an entry that is not is written and written over.
  void enqueue(uint32_t entry, bool due) {
    queue[newest] = static_cast<uint16_t>(entry);
    const uint32_t place = entries[entry].place;
    entries[entry].place = static_cast<uint16_t>(place ^ ((place ^ newest) & -static_cast<uint32_t>(due)));
    newest = (newest + due) % kPlaces;
  }

  uint32_t oldest, newest;  // places of the queue; `newest` is the next to be filled
  Entry entries[kEntries];
  uint16_t queue[kPlaces];
};

}  // namespace plov::codec

#endif
