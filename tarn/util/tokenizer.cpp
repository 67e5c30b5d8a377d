#include "tarn/util/tokenizer.h"

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

bool cut_fields(char* line, char sep, unsigned k, field_span* out) {
  char* p = line;
  unsigned n = 0;
  if (sep != '\0') {
    for (;;) {
      char* start = p;
      while (*p != sep && *p != '\0') ++p;
      if (n < k) out[n] = field_span{start, static_cast<unsigned long>(p - start)};
      ++n;
      // A separator that ends the line closes the last field and adds none.
      if (*p == '\0' || p[1] == '\0') break;
      ++p;
    }
  } else {
    out[0] = field_span{line, std::strlen(line)};
    n = 1;
  }
  if (n != k) return false;
  for (unsigned j = 0; j < k; ++j) const_cast<char*>(out[j].text)[out[j].length] = '\0';
  return true;
}

void cut_leading_fields(char* line, char sep, unsigned k, field_span* out) {
  char* p = line;
  for (unsigned j = 0; j < k; ++j) {
    char* start = p;
    while (*p != sep && *p != '\0') ++p;
    out[j] = field_span{start, static_cast<unsigned long>(p - start)};
    if (*p != '\0') *p++ = '\0';
  }
}

unsigned count_fields(const char* line, char sep) {
  if (sep == '\0') return 1;
  unsigned n = 1;
  for (const char* p = line; *p; ++p)
    if (*p == sep && p[1] != '\0') ++n;
  return n;
}

}  // namespace tarn::util
