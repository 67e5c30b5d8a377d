#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace sylva::impls {

// The bytes of each of three words that belong to a text of each length up
// to 23 (text_cache keys).
struct text_word_masks_t {
  std::uint64_t m[24][3];
  constexpr text_word_masks_t() : m() {
    for (unsigned long length = 0; length < 24; ++length)
      for (unsigned long w = 0; w < 3; ++w)
        m[length][w] = length <= 8 * w ? 0 : length >= 8 * w + 8 ? ~0ull : (1ull << (8 * (length - 8 * w))) - 1;
  }
};
inline constexpr text_word_masks_t text_word_masks{};

// A direct-mapped cache from a field's text to its domain index, used while
// loading: column data repeat heavily (often row after row), and a hit saves
// parsing the text and searching the domain. It only remembers what the
// domain answered, so the loaded table is the same with or without it. A
// column whose texts rarely repeat switches the cache off after a trial.
//
// Texts of up to 23 bytes are held as three zero-padded 64-bit words, so a
// probe is a hash and three word comparisons. The text passed in must have
// 24 readable bytes (chunk buffers are padded for this). The slot count is
// a power of two; loaders give wide tables smaller caches.
class text_cache {
public:
  static constexpr unsigned default_slots = 256;
  static constexpr unsigned long max_length = 23;

  explicit text_cache(unsigned slots = default_slots) : entries_(slots), mask_(slots - 1) {}

  // The cached index of `text`, or -1. Called for every field loaded, so
  // kept small enough to be inlined into the loaders' loops.
  [[gnu::always_inline]] long long find(const char* text, unsigned long length) {
    if (!enabled_ || length > max_length) return -1;
    const key k = make_key(text, length);
    if (k == last_.k) return last_.index;
    ++lookups_;
    const entry& e = entries_[k.slot() & mask_];
    if (e.k == k) {
      ++hits_;
      last_ = e;
      return last_.index;
    }
    return -1;
  }

  // Remembers the index of a text.
  void store(const char* text, unsigned long length, unsigned index) {
    if (!enabled_ || length > max_length) return;
    const key k = make_key(text, length);
    entry& e = entries_[k.slot() & mask_];
    e.k = k;
    e.index = index;
    last_ = e;
  }

  // Called between pieces of work (chunks): after a first piece that only
  // fills the cache, a cache that answers fewer than a quarter of its
  // lookups over the trial switches itself off.
  void review() {
    if (!enabled_) return;
    if (!warm_) {
      warm_ = true;
      lookups_ = hits_ = 0;
    } else if (lookups_ >= trial && hits_ * 4 < lookups_) {
      enabled_ = false;
      entries_ = std::vector<entry>();
    }
  }

  std::size_t footprint() const { return sizeof(*this) + entries_.capacity() * sizeof(entry); }

private:
  static constexpr unsigned long trial = 20000;

  struct key {
    std::uint64_t w0 = 0, w1 = 0, w2 = 0, length = ~0ull;
    bool operator==(const key& o) const { return w0 == o.w0 && w1 == o.w1 && w2 == o.w2 && length == o.length; }
    unsigned slot() const {
      std::uint64_t h = (w0 * 0x9E3779B97F4A7C15ull) ^ (w1 * 0xFF51AFD7ED558CCDull) ^
                        (w2 * 0xC4CEB9FE1A85EC53ull) ^ length;
      h ^= h >> 29;
      return static_cast<unsigned>((h * 0x9E3779B97F4A7C15ull) >> 40);
    }
  };

  struct entry {
    key k;
    unsigned index = 0;
  };

  static key make_key(const char* text, unsigned long length) {
    std::uint64_t w[3];
    std::memcpy(w, text, sizeof w);
    const std::uint64_t* m = text_word_masks.m[length];
    key k;
    k.w0 = w[0] & m[0];
    k.w1 = w[1] & m[1];
    k.w2 = w[2] & m[2];
    k.length = length;
    return k;
  }

  std::vector<entry> entries_;
  unsigned mask_;
  entry last_;
  unsigned long lookups_ = 0, hits_ = 0;
  bool enabled_ = true;
  bool warm_ = false;
};

}  // namespace sylva::impls
