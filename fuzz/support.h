#pragma once

// Helpers shared by the fuzz targets: scratch files, in-memory sources, and
// the work that every table or model a reader accepts is put through, so
// that a reader that lets a bad file through is caught by what comes after.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tarn::inpout {
class stream;
}
namespace sylva::impls {
class table;
class decision_tree;
}  // namespace sylva::impls

namespace fuzz {

// The fuzzer's input as text.
inline std::string_view bytes(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// A file of this process's scratch directory (removed at exit) holding
// `content`; returns its path.
std::string scratch_file(const std::string& name, std::string_view content);
// `content` gzip-compressed.
std::string gzip(std::string_view content);

// A binary file made from a fuzz input: the first byte's flags choose gzip
// (bit 0) and, with bit 1 too, a cut of 1 to 16 bytes from the end (bits 4
// and 5), which the reader must refuse; `cut` tells whether it was made.
inline std::string binary_input(const uint8_t* data, size_t size, bool& cut) {
  const unsigned flags = data[0];
  std::string content(bytes(data + 1, size - 1));
  cut = (flags & 1) && (flags & 2);
  if (flags & 1) content = gzip(content);
  if (cut) content.resize(content.size() - 1 - (flags >> 4 & 3) * 5);
  return content;
}
// A line stream over `content` in memory, which must outlive it.
std::unique_ptr<tarn::inpout::stream> memory_stream(std::string_view content, char separator, int buffer = 16384);
// The text of examples/<name>.
std::string example(const std::string& name);

// Grows and prunes a tree on a loaded table (with the pruning strategy
// `pruning` % 3), renders it in every form, and checks that the table and
// the model read back from their binary forms. A table that cannot train
// (no class column) is left alone.
void exercise_table(sylva::impls::table& t, unsigned pruning);
// Renders a model, predicts an all-unknown case and one case per value of
// the model's domains, and checks that the model reads back from its binary
// form and renders as before.
void exercise_model(const sylva::impls::decision_tree& m);

// An invariant does not hold: report and abort, so that the fuzzer keeps
// the input.
[[noreturn]] void fail(const std::string& what);

}  // namespace fuzz
