#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sylva/impls/value_keys.h"
#include "tarn/data_types/datatype.h"

namespace sylva::impls {

// Where a key can be in a domain, between the stages of a lookup.
struct rank_probe {
  std::uint32_t lo = 0, hi = 0;
  const std::uint32_t* fine = nullptr;  // the finer level's offsets to read
};

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
    probe p;
    start(k, p);
    refine(p);
    return finish(k, p);
  }

  // The same in stages, for lookups of many keys at once: each stage reads
  // what the previous one fetched ahead (prefetch, start, refine, finish),
  // so that the memory latencies of successive keys overlap.
  using probe = rank_probe;
  // Whether lookups go through buckets (else a search of a few values).
  bool bucketed() const { return !buckets_.empty(); }
  void prefetch(K k) const {
    if (!buckets_.empty() && k >= min_ && k <= max_) __builtin_prefetch(&buckets_[bucket_of(k)]);
  }
  [[gnu::always_inline]] void start(K k, probe& p) const {
    p.fine = nullptr;
    if (n_ == 0 || k < min_ || k > max_) {
      p.lo = p.hi = 0;
      return;
    }
    if (buckets_.empty()) {
      p.lo = 0;
      p.hi = static_cast<std::uint32_t>(n_);
      return;
    }
    const bucket& b = buckets_[bucket_of(k)];
    p.lo = b.first;
    p.hi = (&b)[1].first;
    if (const unsigned bits = b.fine & 31; bits != 0) {
      const auto q = static_cast<std::size_t>((k - min_) >> (shift_ - bits)) & ((std::size_t{1} << bits) - 1);
      p.fine = &pool_[(b.fine >> 5) + q];
      __builtin_prefetch(p.fine);
    }
  }
  [[gnu::always_inline]] void refine(probe& p) const {
    if (p.fine) {
      p.hi = p.lo + p.fine[1];
      p.lo += p.fine[0];
    }
    if (p.lo < p.hi) __builtin_prefetch(&values_[p.lo]);
  }
  [[gnu::always_inline]] unsigned finish(K k, const probe& p) const { return search(p.lo, p.hi, k); }

  std::size_t footprint() const;

private:
  struct bucket {
    std::uint32_t first = 0;  // position of the bucket's first value
    // The finer level: where its 2^bits + 1 offsets begin in pool_ (high 27
    // bits) and bits (low 5 bits; 0: none).
    std::uint32_t fine = 0;
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
  std::vector<bucket> buckets_;      // one per bucket, and one holding n
  std::vector<std::uint32_t> pool_;  // offsets from the bucket's first position
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
