#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "tarn/util/nocopy.h"

namespace tarn::adt {

// Collector of distinct values for column data, which repeats heavily: a
// direct-mapped cache of 1339 slots absorbs repeats at the cost of one hash
// and one comparison; values evicted from the cache pile up in `pending`,
// which is sorted and deduplicated whenever it reaches `compact_at`.
//
// Nothing is allocated before the first insertion, and nothing is kept
// after the values are handed over: a table declares one set per column,
// and declared columns may be many.
template <class T>
class set : private tarn::util::nocopy {
public:
  using key_type = typename T::key_type;
  static constexpr int slot_count = 1339;

  set() = default;

  void insert(key_type v) {
    if (slots_.empty()) {
      slots_.resize(slot_count);
      slot_used_.assign(slot_count, 0);
      pending_ = std::make_unique<std::vector<T>>();
      pending_->reserve(static_cast<size_t>(compact_at_));
    }
    const unsigned s = T::slot(v);
    if (!slot_used_[s]) {
      slot_used_[s] = 1;
      slots_[s].assign(v);
      return;
    }
    if (slots_[s].equals(v)) return;
    pending_->push_back(std::move(slots_[s]));
    slots_[s] = T();
    slots_[s].assign(v);
    if (static_cast<long long>(pending_->size()) >= compact_at_) compact();
  }

  // Hands over the sorted distinct values; the set is empty afterwards.
  std::unique_ptr<std::vector<T>> get() {
    if (!pending_) return std::make_unique<std::vector<T>>();
    for (int s = 0; s < slot_count; ++s) {
      if (slot_used_[s]) pending_->push_back(std::move(slots_[s]));
    }
    sort_unique(*pending_);
    pending_->shrink_to_fit();  // the finished domain lives as long as its column
    auto result = std::move(pending_);
    compact_at_ = 256;
    slots_ = std::vector<T>();
    slot_used_ = std::vector<unsigned char>();
    return result;
  }

  // Bytes held, the set itself included (strings count their own buffers
  // only where they hold one).
  std::size_t footprint() const {
    std::size_t bytes = sizeof(*this) + slots_.capacity() * sizeof(T) + slot_used_.capacity();
    if (pending_) bytes += sizeof(*pending_) + pending_->capacity() * sizeof(T);
    return bytes;
  }

private:
  static void sort_unique(std::vector<T>& v) {
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
  }

  void compact() {
    sort_unique(*pending_);
    auto exact = std::make_unique<std::vector<T>>();
    exact->reserve(pending_->size());
    std::move(pending_->begin(), pending_->end(), std::back_inserter(*exact));
    pending_ = std::move(exact);
    compact_at_ = static_cast<int>(4 * pending_->size());
    pending_->reserve(static_cast<size_t>(compact_at_));
  }

  int compact_at_ = 256;
  std::unique_ptr<std::vector<T>> pending_;
  std::vector<T> slots_;
  std::vector<unsigned char> slot_used_;
};

}  // namespace tarn::adt
