#include "tarn/util/tokenizer.h"

#include <emmintrin.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace tarn::util {

const char tokenizer::EMPTY[] = "";

namespace {
constexpr unsigned long initial_token_size = 256;
}

tokenizer::tokenizer() : cursor_(EMPTY), start_(EMPTY) {
  token_ = static_cast<char*>(std::malloc(initial_token_size));
  if (!token_) throw std::runtime_error("Out of memory");
  token_end_ = token_ + initial_token_size;
}

tokenizer::~tokenizer() { std::free(token_); }

void tokenizer::set_text(const char* text) {
  start_ = cursor_ = text ? text : EMPTY;
}

void tokenizer::grow(unsigned long needed) {
  unsigned long size = static_cast<unsigned long>(token_end_ - token_);
  while (size < needed) size += size / 2;
  char* p = static_cast<char*>(std::realloc(token_, size));
  if (!p) throw std::runtime_error("Out of memory");
  token_ = p;
  token_end_ = p + size;
}

const char* tokenizer::next() {
  const char* p = cursor_;
  // A NUL separator never matches inside the text: the whole line is one field.
  while (*p != '\0' && *p != sep_) ++p;
  const unsigned long len = static_cast<unsigned long>(p - cursor_);
  if (len + 1 > static_cast<unsigned long>(token_end_ - token_)) grow(len + 1);
  std::memcpy(token_, cursor_, len);
  token_[len] = '\0';
  length_ = len;
  cursor_ = *p == '\0' ? p : p + 1;
  return token_;
}

namespace {

// Calls at(p) for each separator of a NUL-terminated line, in order, until
// it returns false; returns the line's NUL. Sixteen bytes at a time: a
// comparison with the separator and with NUL gives their positions as bits.
// The line must be followed by 15 readable bytes after its NUL.
template <class At>
char* each_separator(char* line, char sep, At&& at) {
  const __m128i seps = _mm_set1_epi8(sep), nul = _mm_setzero_si128();
  for (char* p = line;; p += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    auto found = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, seps)));
    const auto ends = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, nul)));
    if (ends != 0) found &= (ends & (0u - ends)) - 1;  // separators before the NUL
    for (; found != 0; found &= found - 1)
      if (!at(p + std::countr_zero(found))) return nullptr;
    if (ends != 0) return p + std::countr_zero(ends);
  }
}

}  // namespace

bool cut_fields(char* line, char sep, unsigned k, field_span* out) {
  unsigned n = 0;
  char* start = line;
  if (sep == '\0') {
    out[0] = field_span{line, std::strlen(line)};
    n = 1;
  } else {
    char* end = each_separator(line, sep, [&](char* at) {
      if (n < k) out[n] = field_span{start, static_cast<unsigned long>(at - start)};
      ++n;
      start = at + 1;
      return true;
    });
    // A separator that ends the line closes the last field and adds none.
    if (n == 0 || start != end) {
      if (n < k) out[n] = field_span{start, static_cast<unsigned long>(end - start)};
      ++n;
    }
  }
  if (n != k) return false;
  for (unsigned j = 0; j < k; ++j) const_cast<char*>(out[j].text)[out[j].length] = '\0';
  return true;
}

void cut_leading_fields(char* line, char sep, unsigned k, field_span* out) {
  if (k == 0) return;
  unsigned n = 0;
  char* start = line;
  char* end = nullptr;
  if (sep != '\0') {
    end = each_separator(line, sep, [&](char* at) {
      out[n++] = field_span{start, static_cast<unsigned long>(at - start)};
      *at = '\0';
      start = at + 1;
      return n < k;
    });
  }
  if (n == k) return;
  if (!end) end = line + std::strlen(line);
  // The field the line ends in, then empty ones.
  out[n++] = field_span{start, static_cast<unsigned long>(end - start)};
  while (n < k) out[n++] = field_span{end, 0};
}

unsigned count_fields(const char* line, char sep) {
  if (sep == '\0') return 1;
  unsigned n = 1;
  for (const char* p = line; *p; ++p)
    if (*p == sep && p[1] != '\0') ++n;
  return n;
}

}  // namespace tarn::util
