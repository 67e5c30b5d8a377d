#include "tarn/adt/counting_sort.h"

namespace tarn::adt {

namespace {

// Bits set in a word, without a call into the compiler's support library
// (which the baseline instruction set needs for the builtin).
inline unsigned ones(unsigned long long x) {
  x = x - ((x >> 1) & 0x5555555555555555ull);
  x = (x & 0x3333333333333333ull) + ((x >> 2) & 0x3333333333333333ull);
  x = (x + (x >> 4)) & 0x0f0f0f0f0f0f0f0full;
  return static_cast<unsigned>((x * 0x0101010101010101ull) >> 56);
}

}  // namespace

std::vector<unsigned> counting_permutation(const std::vector<unsigned>& keys, unsigned lo, unsigned hi,
                                                  unsigned unknown_key) {
  const size_t n = keys.size();
  // Keys by position, from position -1 (read, never used, when a block's
  // last original element is taken below).
  std::vector<unsigned> slot_from(n + 1, 0), order(n);
  unsigned* const slot = slot_from.data() + 1;
  for (size_t i = 0; i < n; ++i) slot[i] = (keys[i] == 0 ? unknown_key : keys[i]) - lo;
  unsigned slots = hi > lo ? hi - lo : 0;
  // Slots no key uses make empty blocks, which the walk never stops in: keys
  // renumbered densely in the same order give the same permutation.
  if (slots > 4096 && slots > n / 2) {
    const size_t words = (static_cast<size_t>(slots) + 63) / 64;
    std::vector<unsigned long long> used(words, 0);
    for (size_t i = 0; i < n; ++i) used[slot[i] >> 6] |= 1ull << (slot[i] & 63);
    std::vector<unsigned> before(words);
    unsigned rank = 0;
    for (size_t w = 0; w < words; ++w) {
      before[w] = rank;
      rank += ones(used[w]);
    }
    for (size_t i = 0; i < n; ++i) {
      const unsigned k = slot[i];
      slot[i] = before[k >> 6] + ones(used[k >> 6] & ((1ull << (k & 63)) - 1));
    }
    slots = rank;
  }
  if (slots <= 1 || n == 0) {
    for (size_t i = 0; i < n; ++i) order[i] = static_cast<unsigned>(i);
    return order;
  }
  // Per block: the next free position from its top (case lists stay far
  // below 2^31 entries) and the key of the original element there, side by
  // side. A chain step then reads one block entry, which the caches hold for
  // all but the largest key ranges, instead of an element's key at a random
  // position in memory; that key is fetched for the block's next arrival,
  // off the chain's path, so the fetches of many steps overlap.
  struct block {
    int next;
    unsigned top_key;
  };
  std::vector<int> first(slots + 1, 0);
  for (size_t i = 0; i < n; ++i) ++first[slot[i] + 1];
  for (unsigned k = 0; k < slots; ++k) first[k + 1] += first[k];
  std::vector<block> blocks(slots);
  for (unsigned k = 0; k < slots; ++k) blocks[k] = block{first[k + 1] - 1, slot[first[k + 1] - 1]};
  for (unsigned k = 0; k < slots; ++k) {
    // Positions above blocks[k].next were filled while earlier blocks were walked.
    for (int i = first[k]; i <= blocks[k].next; ++i) {
      unsigned hold = static_cast<unsigned>(i);
      for (unsigned key = slot[i]; key != k;) {
        block& b = blocks[key];
        const int top = b.next--;
        order[top] = hold;
        hold = static_cast<unsigned>(top);
        key = b.top_key;
        b.top_key = slot[top - 1];
      }
      order[i] = hold;
    }
  }
  return order;
}

}  // namespace tarn::adt
