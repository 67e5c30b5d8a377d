#include "sylva/impls/code_index.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "tarn/adt/distinct.h"

namespace sylva::impls {

namespace {

// Below this many values a binary search over the domain is as quick.
constexpr std::size_t indexed_from = 1024;
// Buckets that hold more values than this get a finer level, sized for about
// eight values (two cache lines of floats) per finer bucket; the finer
// levels together hold fewer offsets than this.
constexpr std::size_t fine_from = 16;
constexpr std::size_t values_per_fine = 8;
constexpr std::size_t max_pool = std::size_t{1} << 27;

template <class K>
unsigned bit_width(K x) {
  return static_cast<unsigned>(std::bit_width(x));
}

}  // namespace

template <class T>
rank_index<T>::rank_index(const std::vector<T>& values) : values_(values.data()), n_(values.size()) {
  if (n_ == 0) return;
  min_ = key_at(0);
  max_ = key_at(n_ - 1);
  if (n_ < indexed_from) return;
  // About four values per bucket, 2^4 to 2^16 buckets.
  const unsigned top = std::clamp(bit_width(n_) - 2, 4u, 16u);
  const unsigned width = bit_width(static_cast<K>(max_ - min_));
  shift_ = width > top ? width - top : 0;
  const std::size_t buckets = static_cast<std::size_t>((max_ - min_) >> shift_) + 1;
  buckets_.assign(buckets + 1, bucket{});
  for (std::size_t i = 0; i < n_; ++i) ++buckets_[bucket_of(key_at(i)) + 1].first;
  for (std::size_t b = 0; b < buckets; ++b) buckets_[b + 1].first += buckets_[b].first;
  if (shift_ == 0) return;
  for (std::size_t b = 0; b < buckets; ++b)
    if (buckets_[b + 1].first - buckets_[b].first > fine_from) build_fine(b);
}

template <class T>
void rank_index<T>::build_fine(std::size_t b) {
  const std::size_t lo = buckets_[b].first, hi = buckets_[b + 1].first;
  const unsigned bits = std::min(shift_, bit_width((hi - lo - 1) / values_per_fine));
  const std::size_t at = pool_.size(), size = std::size_t{1} << bits;
  if (at + size + 1 > max_pool) return;  // left to a search of the bucket
  pool_.resize(at + size + 1, 0);
  for (std::size_t i = lo; i < hi; ++i) {
    const auto q = static_cast<std::size_t>((key_at(i) - min_) >> (shift_ - bits)) & (size - 1);
    ++pool_[at + q + 1];
  }
  for (std::size_t q = 0; q < size; ++q) pool_[at + q + 1] += pool_[at + q];
  buckets_[b].fine = static_cast<std::uint32_t>(at << 5) | bits;
}

template <class T>
std::size_t rank_index<T>::footprint() const {
  return sizeof(*this) + buckets_.capacity() * sizeof(bucket) + pool_.capacity() * sizeof(std::uint32_t);
}

template class rank_index<datatype<int>>;
template class rank_index<datatype<unsigned int>>;
template class rank_index<datatype<float>>;
template class rank_index<datatype<double>>;

// ---------------------------------------------------------------- texts

text_index::text_index(const std::vector<datatype<std::string>>& values) : values_(values.data()) {
  std::size_t size = 16;
  while (size < 2 * values.size()) size <<= 1;
  table_.assign(size, entry{});
  const std::size_t mask = size - 1;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::string& v = values[i].value;
    const std::uint64_t h = tarn::adt::text_hash(v.data(), v.size());
    std::size_t at = (h >> 32) & mask;
    while (table_[at].order != 0) at = (at + 1) & mask;
    table_[at] = entry{static_cast<std::uint32_t>(h), static_cast<std::uint32_t>(i + 1)};
  }
}

unsigned text_index::find(const char* s, std::size_t n) const {
  const std::uint64_t h = tarn::adt::text_hash(s, n);
  const auto tag = static_cast<std::uint32_t>(h);
  const std::size_t mask = table_.size() - 1;
  for (std::size_t at = (h >> 32) & mask; table_[at].order != 0; at = (at + 1) & mask) {
    if (table_[at].tag != tag) continue;
    const std::string& v = values_[table_[at].order - 1].value;
    if (v.size() == n && std::memcmp(v.data(), s, n) == 0) return table_[at].order;
  }
  return 0;
}

}  // namespace sylva::impls
