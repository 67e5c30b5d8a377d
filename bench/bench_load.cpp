// Loading benchmark: the whole two-pass load of metadata and data, reported
// as rows/s and MB/s of text, with the table's memory against the bound
// "sum of column widths x rows + domains + 10%".
//
// Usage: bench_load [stem[.gz-data]] ...   Each argument is a file stem
// (<stem>.names and <stem>.data or <stem>.data.gz). Without arguments it
// loads kddcup10 (gzip), a plain copy of it and the 1,000,000-row synthetic
// set, when present (see ../shared/tools/make_scaling_sets.sh; plain copies
// and synthetic sets live in $ARBOR_SCALE, default /tmp/arbor-scale).

#include <sys/stat.h>
#include <unistd.h>
#include <malloc.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/cronos.h"

using namespace sylva::impls;

namespace {

bool exists(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0;
}

long long file_size(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0 ? st.st_size : 0;
}

// Uncompressed bytes of a gzip file.
long long text_bytes(const std::string& p) {
  if (p.size() < 3 || p.compare(p.size() - 3, 3, ".gz") != 0) return file_size(p);
  gzFile f = gzopen(p.c_str(), "rb");
  std::vector<char> buf(1 << 20);
  long long total = 0;
  int n;
  while ((n = gzread(f, buf.data(), static_cast<unsigned>(buf.size()))) > 0) total += n;
  gzclose(f);
  return total;
}

// Heap bytes in use (small blocks and mapped large blocks).
long long heap_bytes() {
  const struct mallinfo2 m = mallinfo2();
  return static_cast<long long>(m.uordblks + m.hblkhd);
}

// Bytes the columns and domains must hold at the least.
long long model_bytes(const table& t) {
  long long total = 0;
  const long long rows = t.get_no_rows();
  for (unsigned i = 0; i < t.get_no_attributes(); ++i) {
    const column* c = t.get_attribute(i);
    if (dynamic_cast<const column_bool*>(c)) total += (rows + 7) / 8;
    if (dynamic_cast<const column_typed<unsigned char>*>(c)) total += rows;
    if (dynamic_cast<const column_typed<unsigned short>*>(c)) total += rows * 2;
    if (dynamic_cast<const column_typed<unsigned int>*>(c)) total += rows * 4;
    if (dynamic_cast<const column_typed<unsigned long long>*>(c)) total += rows * 8;
    const o_set* d = c->get_o_set();
    const long long n = d->size_of_known();
    const std::string w = d->get_datatype();
    if (w == "string") {
      for (long long k = 1; k <= n; ++k) total += static_cast<long long>(sizeof(std::string) + d->get_value(k).size());
    } else {
      total += n * (w == "double" ? 8 : 4);
    }
  }
  return total;
}

std::string data_file(const std::string& stem) {
  return exists(stem + ".data") ? stem + ".data" : stem + ".data.gz";
}

void run(const std::string& stem, const std::string& label) {
  const std::string data = data_file(stem);
  if (!exists(stem + ".names") || !exists(data)) {
    std::cout << label << ": not found (" << stem << "), skipped" << std::endl;
    return;
  }
  const double mb = static_cast<double>(text_bytes(data)) / 1e6;
  double best = 1e30;
  long long resident = 0, bound = 0;
  unsigned rows = 0, columns = 0;
  for (int round = 0; round < 3; ++round) {
    const long long before = heap_bytes();
    tarn::util::cronos timer;
    timer.start();
    auto t = std::make_unique<table>("bench", true);
    t->load_meta_data(std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(stem + ".names", ',')).get(), true);
    t->load_data(std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(data, ',')).get(), "?", true);
    timer.stop();
    best = std::min(best, timer.get_elapsed());
    resident = heap_bytes() - before;
    bound = model_bytes(*t);
    rows = t->get_no_rows();
    columns = t->get_no_attributes();
  }
  std::printf("%-22s %9u rows x %2u cols  %8.1f MB text  %7.3f s  %10.0f rows/s  %7.1f MB/s  "
              "memory %7.1f MB (bound %7.1f MB + 10%%: %s)\n",
              label.c_str(), rows, columns, mb, best, rows / best, mb / best, resident / 1e6, bound / 1e6,
              resident <= bound * 1.1 ? "within" : "ABOVE");
}

// A plain copy of a gzip data file next to the scaling sets.
std::string plain_copy(const std::string& stem, const std::string& dir) {
  const std::string name = stem.substr(stem.find_last_of('/') + 1);
  const std::string out = dir + "/" + name;
  if (!exists(out + ".data")) {
    gzFile f = gzopen((stem + ".data.gz").c_str(), "rb");
    if (!f) return out;
    std::ofstream o(out + ".data", std::ios::binary);
    std::vector<char> buf(1 << 20);
    int n;
    while ((n = gzread(f, buf.data(), static_cast<unsigned>(buf.size()))) > 0) o.write(buf.data(), n);
    gzclose(f);
  }
  std::ifstream in(stem + ".names", std::ios::binary);
  std::ofstream(out + ".names", std::ios::binary) << in.rdbuf();
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    for (int i = 1; i < argc; ++i) run(argv[i], argv[i]);
    return 0;
  }
  const char* env = std::getenv("ARBOR_SCALE");
  const std::string scale = env ? env : "/tmp/arbor-scale";
  const std::string kdd = std::string(ARBOR_DATA_DIR) + "/kddcup10/kddcup10";
  run(kdd, "kddcup10 (gzip)");
  if (exists(scale)) run(plain_copy(kdd, scale), "kddcup10 (plain)");
  run(scale + "/syn1m", "syn1m");
  return 0;
}
