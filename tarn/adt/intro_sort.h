#pragma once

// Sorting 64-bit words by their upper 32 bits with the standard library's
// introsort, step for step, so that words of equal keys end in the very
// order std::sort leaves them in (case orders downstream depend on it):
// median of three moved to the front, the unguarded two-pointer partition,
// recursion on the right part and a loop on the left, heap sort past twice
// the logarithm's depth, and one insertion sort over the whole range at the
// end. Only the partition's scans are done differently: the two pointers
// stop at the same positions and the same pairs are swapped in the same
// order, but the stops are first collected a block at a time without
// branches (the outcome of each comparison is as good as random), and the
// swaps follow. Near the end of a partition the plain scans take over from
// where the pairs left off.

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace tarn::adt {

namespace intro_sort_detail {

inline std::uint32_t key(std::uint64_t w) { return static_cast<std::uint32_t>(w >> 32); }
inline bool less(std::uint64_t a, std::uint64_t b) { return key(a) < key(b); }

inline void move_median_to_first(std::uint64_t* result, std::uint64_t* a, std::uint64_t* b, std::uint64_t* c) {
  if (less(*a, *b)) {
    if (less(*b, *c))
      std::swap(*result, *b);
    else if (less(*a, *c))
      std::swap(*result, *c);
    else
      std::swap(*result, *a);
  } else if (less(*a, *c)) {
    std::swap(*result, *a);
  } else if (less(*b, *c)) {
    std::swap(*result, *c);
  } else {
    std::swap(*result, *b);
  }
}

// The two-pointer partition of [first, last) around the key p of the word
// before first (which stays there): returns where the left pointer stops.
inline std::uint64_t* partition(std::uint64_t* first, std::uint64_t* last, std::uint32_t p) {
  constexpr std::ptrdiff_t block = 16;
  // Stops not yet paired, as offsets into the block last scanned on each
  // side: left stops hold a key of at least p, right stops at most p.
  unsigned char left_stops[block], right_stops[block];
  int left_count = 0, left_at = 0, right_count = 0, right_at = 0;
  std::uint64_t *left_base = first, *right_base = last;  // unscanned: [left_base, right_base)
  // Where the plain scans resume: after the last left stop paired, at the
  // last right stop paired.
  std::uint64_t *l = first, *r = last;
  while (right_base - left_base >= 2 * block) {
    if (left_at == left_count) {
      left_count = left_at = 0;
      for (int i = 0; i < block; ++i) {
        left_stops[left_count] = static_cast<unsigned char>(i);
        left_count += key(left_base[i]) >= p;
      }
      left_base += block;
    }
    if (right_at == right_count) {
      right_count = right_at = 0;
      for (int i = 0; i < block; ++i) {
        right_stops[right_count] = static_cast<unsigned char>(i);
        right_count += key(right_base[-1 - i]) <= p;
      }
      right_base -= block;
    }
    const int pairs = std::min(left_count - left_at, right_count - right_at);
    std::uint64_t* const lb = left_base - block;
    std::uint64_t* const rb = right_base + block;
    for (int k = 0; k < pairs; ++k) std::swap(lb[left_stops[left_at + k]], rb[-1 - right_stops[right_at + k]]);
    left_at += pairs;
    right_at += pairs;
    if (pairs > 0) {
      l = lb + left_stops[left_at - 1] + 1;
      r = rb - 1 - right_stops[right_at - 1];
    }
  }
  // Blocks scanned but not paired hold their words unmoved: scanning them
  // again finds the same stops.
  while (true) {
    while (key(*l) < p) ++l;
    --r;
    while (p < key(*r)) --r;
    if (!(l < r)) return l;
    std::swap(*l, *r);
    ++l;
  }
}

inline void unguarded_linear_insert(std::uint64_t* last) {
  const std::uint64_t val = *last;
  std::uint64_t* next = last - 1;
  while (less(val, *next)) {
    *last = *next;
    last = next;
    --next;
  }
  *last = val;
}

inline void insertion_sort(std::uint64_t* first, std::uint64_t* last) {
  if (first == last) return;
  for (std::uint64_t* i = first + 1; i != last; ++i) {
    if (less(*i, *first)) {
      const std::uint64_t val = *i;
      std::move_backward(first, i, i + 1);
      *first = val;
    } else {
      unguarded_linear_insert(i);
    }
  }
}

constexpr std::ptrdiff_t threshold = 16;

inline void introsort_loop(std::uint64_t* first, std::uint64_t* last, long depth_limit) {
  while (last - first > threshold) {
    if (depth_limit == 0) {
      std::partial_sort(first, last, last, less);
      return;
    }
    --depth_limit;
    std::uint64_t* mid = first + (last - first) / 2;
    move_median_to_first(first, first + 1, mid, last - 1);
    std::uint64_t* cut = partition(first + 1, last, key(*first));
    introsort_loop(cut, last, depth_limit);
    last = cut;
  }
}

inline long floor_log2(std::ptrdiff_t n) {
  long k = 0;
  while (n > 1) n >>= 1, ++k;
  return k;
}

}  // namespace intro_sort_detail

// Sorts [first, last) by the words' upper 32 bits as std::sort does with
// that comparison.
inline void intro_sort_by_key(std::uint64_t* first, std::uint64_t* last) {
  using namespace intro_sort_detail;
  if (first == last) return;
  introsort_loop(first, last, floor_log2(last - first) * 2);
  if (last - first > threshold) {
    insertion_sort(first, first + threshold);
    for (std::uint64_t* i = first + threshold; i != last; ++i) unguarded_linear_insert(i);
  } else {
    insertion_sort(first, last);
  }
}

}  // namespace tarn::adt
