#include "sylva/impls/xlogx.h"

#include <cstdlib>
#include <new>

namespace sylva::impls {

namespace {

// One entry per whole value below 2^24; pages never touched cost nothing.
std::atomic<std::uint32_t>* make_memo() {
  constexpr size_t entries = size_t(1) << 24;
  void* p = std::calloc(entries, sizeof(std::atomic<std::uint32_t>));
  if (!p) throw std::bad_alloc();
  return static_cast<std::atomic<std::uint32_t>*>(p);
}

}  // namespace

std::atomic<std::uint32_t>* const xlog2x_memo = make_memo();

float xlog2x_remember(std::uint32_t i) {
  const float x = static_cast<float>(i);
  const float v = x * log2w(x);
  xlog2x_memo[i].store(std::bit_cast<std::uint32_t>(v), std::memory_order_relaxed);
  return v;
}

}  // namespace sylva::impls
