#pragma once

namespace tarn::util {

// Cuts a NUL-terminated text into fields at a one-character separator.
// Fields are copied, exactly as they stand (no trimming, no quoting), into
// one reused token buffer, so cutting a row allocates nothing once the
// buffer has grown to the longest field.
class tokenizer {
public:
  static const char EMPTY[];  // the text of a tokenizer without text

  tokenizer();
  tokenizer(const tokenizer&) = delete;
  tokenizer& operator=(const tokenizer&) = delete;
  virtual ~tokenizer();

  void set_text(const char* text);
  void set_separator(char c) { sep_ = c; }
  char get_separator() const { return sep_; }

  // The next field; once the end of the text is reached every call returns
  // an empty token. The pointer stays valid until the next call.
  virtual const char* next();
  // Length of the last token returned by next().
  unsigned long length() const { return length_; }
  // The text not yet cut.
  const char* rest() const { return cursor_; }
  const char* text() const { return start_; }

private:
  void grow(unsigned long needed);

  const char* cursor_;
  const char* start_;
  char* token_;
  char* token_end_;  // one past the last usable byte of token_
  char sep_ = '\t';
  unsigned long length_ = 0;
};

// Number of fields of a line: one plus the separators, where a separator that
// ends the line adds nothing.
unsigned count_fields(const char* line, char sep);

// A field cut in place: NUL-terminated text of `length` bytes.
struct field_span {
  const char* text;
  unsigned long length;
};

// Cuts a line, in place, into exactly `k` fields, as count_fields() counts
// and the tokenizer cuts them: each field is ended with a NUL over its
// separator. False, with the line left as it was, when the line has another
// number of fields. The line is scanned in blocks of 16 bytes: 15 bytes
// after its NUL must be readable (chunk buffers are padded for this).
bool cut_fields(char* line, char sep, unsigned k, field_span* out);

// Cuts the first `k` fields of a line in place as successive next() calls of
// a tokenizer would: fields beyond the end of the line are empty, fields
// beyond the k-th are left uncut. The same padding is needed.
void cut_leading_fields(char* line, char sep, unsigned k, field_span* out);

}  // namespace tarn::util
