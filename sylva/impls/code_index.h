#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sylva/impls/value_keys.h"
#include "tarn/data_types/datatype.h"

namespace sylva::impls {

// Finds the domain index (position + 1) of a numeric value among the sorted
// distinct values of a finished domain, without a copy of them: buckets on
// the high bits of the value's key (a second, finer level where a bucket
// holds many values, since reals crowd into few magnitudes) narrow the search
// to a few neighbours. Takes about a byte per value next to the domain, where
// a hash table would take several; lookups touch one or two cache lines of
// the domain. Read-only once built, so loading threads share it.
template <class T>
class rank_index {
public:
  using V = typename T::value_type;
  using K = value_key_t<V>;

  explicit rank_index(const std::vector<T>& values);
  rank_index(const rank_index&) = delete;
  rank_index& operator=(const rank_index&) = delete;

  // Position + 1 of the value with key `k`; 0 when the domain lacks it.
  unsigned find(K k) const {
    if (n_ == 0 || k < min_ || k > max_) return 0;
    if (first_.empty()) return search(0, n_, k);
    const K rel = k - min_;
    const std::size_t b = static_cast<std::size_t>(rel >> shift_);
    std::size_t lo = first_[b], hi = first_[b + 1];
    const fine_level& f = fine_[b];
    if (f.bits != 0) {
      const std::uint32_t* at = &pool_[f.at];
      const std::size_t q = static_cast<std::size_t>(rel >> (shift_ - f.bits)) & ((std::size_t{1} << f.bits) - 1);
      hi = lo + at[q + 1];
      lo += at[q];
    }
    return search(lo, hi, k);
  }

  std::size_t footprint() const;

private:
  struct fine_level {
    std::uint32_t at = 0;    // first of this bucket's 2^bits + 1 offsets in pool_
    std::uint32_t bits = 0;  // 0: no finer level
  };

  K key_at(std::size_t i) const { return value_key(values_[i].value); }

  unsigned search(std::size_t lo, std::size_t hi, K k) const {
    while (hi - lo > 8) {  // the key, if present, is in [lo, hi)
      const std::size_t mid = lo + (hi - lo) / 2;
      if (key_at(mid) < k)
        lo = mid + 1;
      else
        hi = mid + 1;
    }
    for (; lo < hi; ++lo) {
      const K here = key_at(lo);
      if (here >= k) return here == k ? static_cast<unsigned>(lo + 1) : 0;
    }
    return 0;
  }

  std::size_t bucket_of(K k) const { return static_cast<std::size_t>((k - min_) >> shift_); }
  void build_fine(std::size_t b);

  const T* values_;
  std::size_t n_;
  K min_ = 0, max_ = 0;
  unsigned shift_ = 0;
  std::vector<std::uint32_t> first_;  // first position of each bucket, and n
  std::vector<fine_level> fine_;
  std::vector<std::uint32_t> pool_;   // offsets from the bucket's first position
};

// The same for texts: an open-addressing table of (hash tag, index), each hit
// confirmed against the domain's own text.
class text_index {
public:
  explicit text_index(const std::vector<tarn::data_types::datatype<std::string>>& values);
  text_index(const text_index&) = delete;
  text_index& operator=(const text_index&) = delete;

  unsigned find(const char* s, std::size_t n) const;
  std::size_t footprint() const { return sizeof(*this) + table_.capacity() * sizeof(entry); }

private:
  struct entry {
    std::uint32_t tag = 0;
    std::uint32_t order = 0;  // 0: empty
  };
  const tarn::data_types::datatype<std::string>* values_;
  std::vector<entry> table_;
};

using tarn::data_types::datatype;
extern template class rank_index<datatype<int>>;
extern template class rank_index<datatype<unsigned int>>;
extern template class rank_index<datatype<float>>;
extern template class rank_index<datatype<double>>;

}  // namespace sylva::impls
