#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

#include "tarn/adt/radix_sort.h"

namespace tarn::adt {

// Collector of the distinct values of a stream of unsigned keys. Column data
// repeat heavily, so a small direct-mapped cache of recent keys absorbs most
// repeats at the cost of one multiply and one comparison; other keys are
// appended to a pending list, which is sorted, deduplicated and merged into
// the sorted distinct keys whenever it is as long as they are (and holds at
// least a few thousand). Work and memory grow with the distinct keys, not
// with the rows, also without a cache (tables of many columns get none).
template <class K>
class distinct_keys {
public:
  // A cache of 2^cache_bits keys (0: none).
  explicit distinct_keys(unsigned cache_bits) : cache_bits_(cache_bits) {}

  void insert(K k) {
    if (cache_bits_ != 0) {
      if (cache_.empty()) init_cache();
      K& slot = cache_[slot_of(k)];
      if (slot == k) return;
      slot = k;
    }
    pending_.push_back(k);
    if (pending_.size() >= compact_at_) compact();
  }

  // The distinct keys in ascending order; the collector is empty afterwards.
  std::vector<K> take() {
    compact();
    cache_ = std::vector<K>();
    pending_ = std::vector<K>();
    compact_at_ = min_batch;
    return std::move(sorted_);
  }

  // Bytes held.
  std::size_t footprint() const {
    return sizeof(*this) + (cache_.capacity() + pending_.capacity() + sorted_.capacity()) * sizeof(K);
  }

private:
  static constexpr std::size_t min_batch = 64;
  static constexpr std::size_t radix_from = 1 << 11;  // below, std::sort is quicker

  std::size_t slot_of(K k) const {
    return static_cast<std::size_t>((static_cast<std::uint64_t>(k) * 0x9E3779B97F4A7C15ull) >> (64 - cache_bits_));
  }

  // Every slot starts with a key that does not belong there, so that no key
  // is taken for seen before it was.
  void init_cache() {
    cache_.assign(std::size_t{1} << cache_bits_, K(0));
    const std::size_t home = slot_of(K(0));
    K stranger = 1;
    while (slot_of(stranger) == home) ++stranger;
    cache_[home] = stranger;
  }

  void compact() {
    if (pending_.empty()) return;
    if (pending_.size() < radix_from) {
      std::sort(pending_.begin(), pending_.end());
    } else {
      std::vector<K> scratch;
      radix_sort(pending_, scratch);
    }
    pending_.erase(std::unique(pending_.begin(), pending_.end()), pending_.end());
    if (sorted_.empty()) {
      sorted_.swap(pending_);
    } else {
      std::vector<K> merged;
      merged.reserve(sorted_.size() + pending_.size());
      std::set_union(sorted_.begin(), sorted_.end(), pending_.begin(), pending_.end(), std::back_inserter(merged));
      sorted_.swap(merged);
    }
    pending_.clear();
    compact_at_ = std::max(min_batch, sorted_.size());
  }

  unsigned cache_bits_;
  std::vector<K> cache_;
  std::vector<K> pending_;
  std::vector<K> sorted_;
  std::size_t compact_at_ = min_batch;
};

// Merges ascending runs of distinct keys into one (the runs are consumed).
template <class K>
std::vector<K> merge_distinct(std::vector<std::vector<K>> runs) {
  if (runs.empty()) return {};
  while (runs.size() > 1) {
    std::vector<std::vector<K>> next;
    for (std::size_t i = 0; i + 1 < runs.size(); i += 2) {
      std::vector<K> merged;
      merged.reserve(runs[i].size() + runs[i + 1].size());
      std::set_union(runs[i].begin(), runs[i].end(), runs[i + 1].begin(), runs[i + 1].end(),
                     std::back_inserter(merged));
      runs[i] = std::vector<K>();
      runs[i + 1] = std::vector<K>();
      merged.shrink_to_fit();
      next.push_back(std::move(merged));
    }
    if (runs.size() % 2 == 1) next.push_back(std::move(runs.back()));
    runs.swap(next);
  }
  return std::move(runs.front());
}

// Hash of a byte string, for the text tables of loading.
inline std::uint64_t text_hash(const char* s, std::size_t n) {
  std::uint64_t h = 0x9E3779B97F4A7C15ull ^ (n * 0xC2B2AE3D27D4EB4Full);
  while (n >= 8) {
    std::uint64_t w;
    std::memcpy(&w, s, 8);
    h = (h ^ w) * 0xFF51AFD7ED558CCDull;
    h ^= h >> 32;
    s += 8;
    n -= 8;
  }
  std::uint64_t w = 0;
  std::memcpy(&w, s, n);
  h = (h ^ w) * 0xC4CEB9FE1A85EC53ull;
  return h ^ (h >> 29);
}

// Collector of distinct texts: an open-addressing hash set whose texts are
// copied into blocks of its own memory.
class distinct_texts {
public:
  distinct_texts() = default;
  distinct_texts(const distinct_texts&) = delete;
  distinct_texts& operator=(const distinct_texts&) = delete;

  void insert(const char* s, std::size_t n) {
    if (2 * (used_ + 1) > table_.size()) grow();
    const std::uint64_t h = text_hash(s, n);
    const std::size_t mask = table_.size() - 1;
    for (std::size_t at = h & mask;; at = (at + 1) & mask) {
      entry& e = table_[at];
      if (!e.text) {
        e = entry{h, store(s, n), static_cast<std::size_t>(n)};
        ++used_;
        return;
      }
      if (e.hash == h && e.length == n && std::memcmp(e.text, s, n) == 0) return;
    }
  }

  std::size_t size() const { return used_; }

  // Appends views of the texts (valid while the collector lives), unordered.
  void views(std::vector<std::string_view>& out) const {
    for (const entry& e : table_)
      if (e.text) out.emplace_back(e.text, e.length);
  }

  std::size_t footprint() const { return sizeof(*this) + table_.capacity() * sizeof(entry) + stored_; }

private:
  struct entry {
    std::uint64_t hash = 0;
    const char* text = nullptr;  // null: empty slot
    std::size_t length = 0;
  };

  void grow() {
    std::vector<entry> old(table_.empty() ? 8 : 2 * table_.size());
    old.swap(table_);
    const std::size_t mask = table_.size() - 1;
    for (const entry& e : old) {
      if (!e.text) continue;
      std::size_t at = e.hash & mask;
      while (table_[at].text) at = (at + 1) & mask;
      table_[at] = e;
    }
  }

  const char* store(const char* s, std::size_t n) {
    if (n + 1 > left_) {
      // Blocks double from a small first one: a column of few values (and
      // a table of many columns) stays small.
      next_block_ = std::min<std::size_t>(2 * next_block_, max_block);
      const std::size_t size = std::max<std::size_t>(n + 1, next_block_);
      blocks_.push_back(std::make_unique<char[]>(size));
      free_ = blocks_.back().get();
      left_ = size;
      stored_ += size;
    }
    char* p = free_;
    std::memcpy(p, s, n);
    p[n] = '\0';
    free_ += n + 1;
    left_ -= n + 1;
    return p;
  }

  static constexpr std::size_t max_block = 1 << 16;

  std::vector<entry> table_;
  std::size_t used_ = 0;
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* free_ = nullptr;
  std::size_t left_ = 0;
  std::size_t stored_ = 0;
  std::size_t next_block_ = 32;
};

}  // namespace tarn::adt
