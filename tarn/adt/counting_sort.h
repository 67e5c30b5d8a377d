#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace tarn::adt {

// In-place counting sort of [begin, end) by key(element), for keys in
// [lo, hi); a key of 0 is replaced by `unknown_key`. The permutation is part
// of the results downstream (float sums follow it), so it is exactly this
// one: counters hold the last position of each key's block; walking from the
// front, an element already inside its key's block stays and the walk moves
// on, any other element is swapped to its key's counter position and that
// counter decremented. Not stable.
template <class It, class Key>
void counting_sort(It begin, It end, unsigned lo, unsigned hi, Key key, unsigned unknown_key) {
  if (hi <= lo + 1 || begin == end) return;
  auto slot = [&](const auto& e) -> size_t {
    const unsigned k = key(e);
    return (k == 0 ? unknown_key : k) - lo;
  };
  std::vector<long long> next(static_cast<size_t>(hi - lo), 0);
  for (It it = begin; it != end; ++it) ++next[slot(*it)];
  next[0] -= 1;
  for (size_t k = 1; k < next.size(); ++k) next[k] += next[k - 1];
  const std::vector<long long> last = next;

  const long long n = end - begin;
  long long i = 0;
  while (i < n) {
    const size_t k = slot(begin[i]);
    const long long first = k == 0 ? 0 : last[k - 1] + 1;
    if (i >= first && i <= last[k]) {
      ++i;
    } else {
      std::swap(begin[i], begin[next[k]]);
      --next[k];
    }
  }
}

}  // namespace tarn::adt

namespace tarn::adt {

// The permutation counting_sort would apply to elements with these keys,
// computed on compact records: the same walk over 8-byte (key, position)
// pairs and 8-byte counters, which keeps its random accesses inside the
// caches where sorting the elements themselves would not. Returns, for each
// final position, the element's original position. Keys of 0 become
// `unknown_key`; keys lie in [lo, hi).
inline std::vector<unsigned> counting_permutation(const std::vector<unsigned>& keys, unsigned lo, unsigned hi,
                                                  unsigned unknown_key) {
  const size_t n = keys.size();
  struct item {
    unsigned slot, position;
  };
  std::vector<item> a(n);
  for (size_t i = 0; i < n; ++i) a[i] = item{(keys[i] == 0 ? unknown_key : keys[i]) - lo, static_cast<unsigned>(i)};
  // Slots no key uses make empty blocks, which the walk never stops in: keys
  // renumbered densely in the same order give the same permutation with far
  // fewer counters.
  if (hi - lo > 4096 && hi - lo > n / 2) {
    const size_t words = (static_cast<size_t>(hi - lo) + 63) / 64;
    std::vector<unsigned long long> used(words, 0);
    for (const item& x : a) used[x.slot >> 6] |= 1ull << (x.slot & 63);
    std::vector<unsigned> before(words);
    unsigned rank = 0;
    for (size_t w = 0; w < words; ++w) {
      before[w] = rank;
      rank += static_cast<unsigned>(__builtin_popcountll(used[w]));
    }
    for (item& x : a)
      x.slot = before[x.slot >> 6] + static_cast<unsigned>(__builtin_popcountll(used[x.slot >> 6] & ((1ull << (x.slot & 63)) - 1)));
    lo = 0;
    hi = rank;
  }
  if (hi > lo + 1 && n > 0) {
    // Per slot: the next free position from the top, and the block's first.
    // Positions fit in 32 bits here (case lists are far below 2^31).
    struct counter {
      int next, first;
    };
    std::vector<counter> c(static_cast<size_t>(hi - lo), counter{0, 0});
    for (const item& x : a) ++c[x.slot].next;
    int end = -1;
    for (counter& x : c) {
      x.first = end + 1;
      end += x.next;
      x.next = end;
    }
    const int count = static_cast<int>(n);
    for (int i = 0; i < count;) {
      counter& k = c[a[i].slot];
      const int last = a[i].slot + 1 < c.size() ? c[a[i].slot + 1].first - 1 : count - 1;
      if (i >= k.first && i <= last) {
        ++i;
      } else {
        std::swap(a[i], a[k.next]);
        --k.next;
      }
    }
  }
  std::vector<unsigned> order(n);
  for (size_t i = 0; i < n; ++i) order[i] = a[i].position;
  return order;
}

}  // namespace tarn::adt
