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

// The permutation counting_sort would apply to elements with these keys:
// for each final position, the element's original position. Keys of 0
// become `unknown_key`; keys lie in [lo, hi).
//
// The swap walk never needs to move elements to be followed: a position is
// taken by its block's counter at most once, and until then it still holds
// its original element; a block is filled from its top, so its positions
// above the counter are done. What is left is the walk's chains over the
// original keys: the element in hand goes to the counter of its key's block
// and the original element found there is taken up next, until one belongs
// to the block being walked. Each block keeps its counter beside the key of
// the original element under it, so a chain only reads the blocks (cached)
// and the keys of positions are fetched ahead, out of the chain's way.
std::vector<unsigned> counting_permutation(const std::vector<unsigned>& keys, unsigned lo, unsigned hi,
                                           unsigned unknown_key);

}  // namespace tarn::adt
