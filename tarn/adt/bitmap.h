#pragma once

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace tarn::adt {

// Growable bit vector in 32-bit words; bit i lives in word i / 32 at bit
// position i % 32 counted from the least significant bit.
class bitmap {
public:
  static constexpr std::uint32_t max_bits = 4294967295u;

  void reserve(std::uint32_t bits) { words_.reserve((static_cast<std::uint64_t>(bits) + 31) / 32); }
  std::uint32_t size() const { return bits_; }

  void push_back(bool v) {
    if (bits_ == max_bits) throw std::runtime_error("bitmap maximum length exceeded.");
    if (bits_ % 32 == 0) words_.push_back(0);
    if (v) words_.back() |= 1u << (bits_ % 32);
    ++bits_;
  }

  bool get(std::uint32_t i) const { return (words_[i >> 5] >> (i & 31)) & 1u; }
  const std::uint32_t* data() const { return words_.data(); }
  const std::vector<std::uint32_t>& words() const { return words_; }

  // Replaces the content by `bits` bits taken from `words`.
  void assign(std::uint32_t bits, std::vector<std::uint32_t> words) {
    bits_ = bits;
    words_ = std::move(words);
  }

private:
  std::uint32_t bits_ = 0;
  std::vector<std::uint32_t> words_;
};

}  // namespace tarn::adt
