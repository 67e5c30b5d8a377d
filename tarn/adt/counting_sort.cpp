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
  std::vector<unsigned> slot(n), order(n);
  for (size_t i = 0; i < n; ++i) slot[i] = (keys[i] == 0 ? unknown_key : keys[i]) - lo;
  unsigned slots = hi > lo ? hi - lo : 0;
  // Slots no key uses make empty blocks, which the walk never stops in: keys
  // renumbered densely in the same order give the same permutation.
  if (slots > 4096 && slots > n / 2) {
    const size_t words = (static_cast<size_t>(slots) + 63) / 64;
    std::vector<unsigned long long> used(words, 0);
    for (unsigned k : slot) used[k >> 6] |= 1ull << (k & 63);
    std::vector<unsigned> before(words);
    unsigned rank = 0;
    for (size_t w = 0; w < words; ++w) {
      before[w] = rank;
      rank += ones(used[w]);
    }
    for (unsigned& k : slot)
      k = before[k >> 6] + ones(used[k >> 6] & ((1ull << (k & 63)) - 1));
    slots = rank;
  }
  if (slots <= 1 || n == 0) {
    for (size_t i = 0; i < n; ++i) order[i] = static_cast<unsigned>(i);
    return order;
  }
  // Per block: its first position, and the next free position from its top
  // (case lists stay far below 2^31 entries).
  std::vector<int> first(slots + 1, 0), next(slots);
  for (unsigned k : slot) ++first[k + 1];
  for (unsigned k = 0; k < slots; ++k) {
    first[k + 1] += first[k];
    next[k] = first[k + 1] - 1;
  }
  for (unsigned k = 0; k < slots; ++k) {
    // Positions above next[k] were filled while earlier blocks were walked.
    for (int i = first[k]; i <= next[k]; ++i) {
      unsigned hold = static_cast<unsigned>(i);
      for (unsigned key = slot[hold]; key != k; key = slot[hold]) {
        const int top = next[key]--;
        order[top] = hold;
        hold = static_cast<unsigned>(top);
      }
      order[i] = hold;
    }
  }
  return order;
}

}  // namespace tarn::adt
