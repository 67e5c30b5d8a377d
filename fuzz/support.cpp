#include "support.h"

#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/binstream.h"
#include "tarn/inpout/iomem.h"
#include "tarn/inpout/stream.h"

namespace fuzz {

namespace {

using sylva::impls::decision_tree;
using sylva::impls::table;
using tarn::inpout::iomem;

// The scratch directory, made on first use and removed when the process
// exits normally.
const std::string& scratch_dir() {
  static const std::string dir = [] {
    const char* base = std::getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/arbor-fuzz-XXXXXX";
    if (!mkdtemp(templ.data())) {
      std::perror("mkdtemp");
      std::abort();
    }
    static const std::string removed = templ;
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(removed, ec);
    });
    return templ;
  }();
  return dir;
}

// The bytes `write` puts through a binary stream, in memory.
template <class Write>
std::string to_bytes(Write write) {
  iomem block;
  block.open(4096u);
  {
    tarn::inpout::obinstream out(&block, false);
    write(out);
    if (!out.good()) fail("a binary write to memory failed");
  }
  return std::string(block.data(), static_cast<size_t>(block.size()));
}

std::string renderings(const decision_tree& m) {
  std::ostringstream os;
  m.toTEXT(os, 0);
  m.toXML(os, m.get_prediction());
  m.toDOT(os);
  return os.str();
}

// A table, written and read back, must come back whole and the same.
void check_table_round_trip(const table& t) {
  const std::string bytes = to_bytes([&](tarn::inpout::obinstream& out) { out << &t; });
  iomem block;
  block.open(const_cast<char*>(bytes.data()), static_cast<unsigned>(bytes.size()), static_cast<unsigned>(bytes.size()));
  tarn::inpout::ibinstream in(&block, false);
  table* raw = nullptr;
  try {
    in >> raw;
    in.expect_end();
  } catch (const std::exception& e) {
    delete raw;
    fail(std::string("a table does not read back from its binary form: ") + e.what());
  }
  std::unique_ptr<table> back(raw);
  if (!back || !back->holds_all_rows()) fail("a table reads back incomplete");
  if (to_bytes([&](tarn::inpout::obinstream& out) { out << back.get(); }) != bytes)
    fail("a table reads back different");
}

}  // namespace

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "invariant broken: %s\n", what.c_str());
  std::abort();
}

std::string scratch_file(const std::string& name, std::string_view content) {
  const std::string path = scratch_dir() + "/" + name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!out.flush()) fail("cannot write " + path);
  return path;
}

std::string gzip(std::string_view content) {
  uLongf size = compressBound(static_cast<uLong>(content.size())) + 32;
  std::string out(size, '\0');
  z_stream z{};
  // windowBits 15 + 16: a gzip member rather than a bare zlib stream.
  if (deflateInit2(&z, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) fail("deflateInit2");
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
  z.avail_in = static_cast<uInt>(content.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  if (deflate(&z, Z_FINISH) != Z_STREAM_END) fail("deflate");
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

std::unique_ptr<tarn::inpout::stream> memory_stream(std::string_view content, char separator, int buffer) {
  auto* block = new iomem();
  block->open(const_cast<char*>(content.data()), static_cast<unsigned>(content.size()),
              static_cast<unsigned>(content.size()));
  return std::make_unique<tarn::inpout::stream>(block, true, separator, buffer);
}

std::string example(const std::string& name) {
  std::ifstream in(std::string(ARBOR_SOURCE_DIR) + "/examples/" + name, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  if (s.str().empty()) fail("missing example " + name);
  return s.str();
}

void exercise_table(table& t, unsigned pruning) {
  decision_tree d("fuzz");
  d.set_pruning_strategy(static_cast<decision_tree::PruningStrategy>(pruning % 3));
  try {
    d.build_pruned(&t, nullptr, true, 0);
  } catch (const std::runtime_error&) {
    return;  // a table that cannot train says so
  }
  check_table_round_trip(t);
  exercise_model(d);
}

void exercise_model(const decision_tree& m) {
  const std::string text = renderings(m);
  const table* t = m.get_table();
  if (t && t->get_class() && m.get_tree()) {
    const unsigned k = t->get_no_attributes();
    std::vector<std::string> values(k);
    for (unsigned a = 0; a < k; ++a) values[a] = t->get_attribute(a)->get_o_set()->get_null();
    m.prediction(values, 1.0f);
    // One known value at a time, a bounded number in all.
    unsigned budget = 256;
    for (unsigned a = 0; a < k && budget > 0; ++a) {
      const auto* c = t->get_attribute(a);
      const std::string unknown = values[a];
      for (unsigned v = 1; v <= c->get_o_set()->size_of_known() && budget > 0; ++v, --budget) {
        values[a] = c->get_value(v);
        m.prediction(values, 1.0f);
      }
      values[a] = unknown;
    }
  }
  const std::string bytes = m.to_bytes();
  auto back = std::make_unique<decision_tree>("my_decision_tree");
  try {
    back->from_bytes(bytes.data(), bytes.size());
  } catch (const std::exception& e) {
    fail(std::string("a model does not read back from its binary form: ") + e.what());
  }
  if (back->to_bytes() != bytes) fail("a model reads back different");
  if (renderings(*back) != text) fail("a model renders differently once read back");
}

}  // namespace fuzz
