// The line stream and its tokenizer over arbitrary bytes. The first byte
// chooses the separator, the second the starting buffer size (small sizes
// make every line grow the buffer); the rest is the text. Besides not
// crashing, the stream must account for every byte, cut fields that join
// back into their line, and read the same lines again after a rewind.

#include <string>
#include <vector>

#include "support.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/tokenizer.h"

namespace {

std::vector<std::string> read_all(tarn::inpout::stream& s, size_t size) {
  std::vector<std::string> lines;
  const char sep = s.get_delim();
  while (s.read_line()) {
    const std::string line = s.get_line();
    lines.push_back(line);
    if (s.tell2() > size) fuzz::fail("the stream counts more bytes than it was given");
    // The fields joined by the separator give the line back (a separator
    // that ends the line starts no field of its own).
    const unsigned n = tarn::util::count_fields(line.c_str(), sep);
    std::string joined;
    for (unsigned i = 0; i < n; ++i) {
      if (i > 0) joined += sep;
      joined += s.next_field();
    }
    if (sep != '\0' && !line.empty() && line.back() == sep) joined += sep;
    if (joined != line) fuzz::fail("fields do not join into their line");
    if (*s.next_field() != '\0') fuzz::fail("a field beyond the count");
  }
  if (s.tell2() != size) fuzz::fail("the stream lost bytes");
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const char sep = static_cast<char>(data[0]);
  const int buffer = 1 + data[1] % 64;
  const std::string_view text = fuzz::bytes(data + 2, size - 2);
  auto s = fuzz::memory_stream(text, sep, buffer);
  const auto first = read_all(*s, text.size());
  if (!s->rewind()) fuzz::fail("a memory stream does not rewind");
  if (read_all(*s, text.size()) != first) fuzz::fail("a rewound stream reads other lines");
  return 0;
}
