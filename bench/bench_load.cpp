// Loading benchmark: the whole two-pass load of metadata and data, on one
// thread and on all online processors, for plain and gzip input. Every load
// runs in a child process of its own, so that its peak resident memory
// (VmHWM) is its own; the peak is printed beside the bound the loader keeps
// to: 1.2 x (sum over columns of index width x rows + domains).
//
// Usage:
//   bench_load [--rounds N] [--threads "1 2"] [stem ...]
//       Each stem names <stem>.names and <stem>.data or <stem>.data.gz.
//       Without stems: kddcup10 (gzip, and a plain copy), the synthetic sets
//       syn1m and syn10m of $ARBOR_SCALE (default /tmp/arbor-scale; syn10m
//       gzip and a plain copy), syn100m when present, and a table of 100,000
//       declared columns. Plain copies and the wide table are made in
//       $ARBOR_BENCH_TMP (default /tmp/arbor-bench). Times are medians of N
//       rounds (default 5), with the fastest and slowest in brackets.
//   bench_load --numbers file ...
//       Reads every field of the files with the loader's number parser and
//       with strtod, and counts the fields where they differ.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/cronos.h"
#include "tarn/util/numbers.h"

using namespace sylva::impls;

namespace {

bool exists(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0;
}

bool is_gzip(const std::string& p) { return p.size() > 3 && p.compare(p.size() - 3, 3, ".gz") == 0; }

// Bytes of text (uncompressed for gzip files).
long long text_bytes(const std::string& p) {
  if (!is_gzip(p)) {
    struct stat st;
    return stat(p.c_str(), &st) == 0 ? st.st_size : 0;
  }
  gzFile f = gzopen(p.c_str(), "rb");
  std::vector<char> buf(1 << 20);
  long long total = 0;
  int n;
  while ((n = gzread(f, buf.data(), static_cast<unsigned>(buf.size()))) > 0) total += n;
  gzclose(f);
  return total;
}

// A figure of /proc/self/status in bytes (VmHWM, VmRSS).
long long status_bytes(const char* field) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind(field, 0) == 0) return std::atoll(line.c_str() + std::strlen(field) + 1) * 1024;
  return -1;
}

// Index bytes of the columns and bytes of the domains.
long long bound_bytes(const table& t) {
  long long total = 0;
  const long long rows = t.get_no_rows();
  for (unsigned i = 0; i < t.get_no_attributes(); ++i) {
    const column* c = t.get_attribute(i);
    if (dynamic_cast<const column_bool*>(c)) total += (rows + 7) / 8;
    if (dynamic_cast<const column_typed<unsigned char>*>(c)) total += rows;
    if (dynamic_cast<const column_typed<unsigned short>*>(c)) total += rows * 2;
    if (dynamic_cast<const column_typed<unsigned int>*>(c)) total += rows * 4;
    if (dynamic_cast<const column_typed<unsigned long long>*>(c)) total += rows * 8;
    total += static_cast<long long>(c->get_o_set()->footprint());
  }
  return total;
}

std::string data_file(const std::string& stem) {
  return exists(stem + ".data") ? stem + ".data" : stem + ".data.gz";
}

struct measure {
  double seconds = 0;
  long long rows = 0, columns = 0, before = 0, peak = 0, bound = 0;
};

// One load in a child process.
bool load_once(const std::string& stem, int threads, measure& m) {
  int fds[2];
  if (pipe(fds) != 0) return false;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    measure r;
    r.before = status_bytes("VmRSS:");
    tarn::util::cronos timer;
    timer.start();
    table t("bench", true);
    t.load_meta_data(std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(stem + ".names", ',')).get(), true);
    t.load_data(std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(data_file(stem), ',')).get(), "?",
                true, threads);
    timer.stop();
    r.seconds = timer.get_elapsed();
    r.peak = status_bytes("VmHWM:");
    r.rows = t.get_no_rows();
    r.columns = t.get_no_attributes();
    r.bound = bound_bytes(t);
    const ssize_t w = write(fds[1], &r, sizeof r);
    _exit(w == static_cast<ssize_t>(sizeof r) ? 0 : 1);
  }
  close(fds[1]);
  const bool ok = pid > 0 && read(fds[0], &m, sizeof m) == static_cast<ssize_t>(sizeof m);
  close(fds[0]);
  int status = 0;
  if (pid > 0) waitpid(pid, &status, 0);
  return ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int online() { return static_cast<int>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN))); }

void run(const std::string& stem, const std::string& label, int rounds, const std::vector<int>& thread_counts) {
  const std::string data = data_file(stem);
  if (!exists(stem + ".names") || !exists(data)) {
    std::printf("%s: not found (%s), skipped\n", label.c_str(), stem.c_str());
    return;
  }
  const double mb = static_cast<double>(text_bytes(data)) / 1e6;
  for (const int threads : thread_counts) {
    std::vector<measure> runs;
    for (int r = 0; r < rounds; ++r) {
      measure m;
      if (!load_once(stem, threads, m)) {
        std::printf("%s: load failed\n", label.c_str());
        return;
      }
      runs.push_back(m);
    }
    std::sort(runs.begin(), runs.end(), [](const measure& a, const measure& b) { return a.seconds < b.seconds; });
    const measure& med = runs[runs.size() / 2];
    long long peak = 0;
    for (const measure& m : runs) peak = std::max(peak, m.peak - m.before);
    const double limit = 1.2 * static_cast<double>(med.bound);
    std::printf("%-22s %-5s %2d thr %10lld rows x %3lld cols %8.1f MB  %7.3f s (%.3f-%.3f)  %7.1f MB/s  "
                "%6.1f MB/s/thr  peak %8.1f MB (bound %8.1f MB, 1.2x %8.1f: %s)\n",
                label.c_str(), is_gzip(data) ? "gzip" : "plain", threads, med.rows, med.columns, mb, med.seconds,
                runs.front().seconds, runs.back().seconds, mb / med.seconds, mb / med.seconds / threads, peak / 1e6,
                med.bound / 1e6, limit / 1e6, static_cast<double>(peak) <= limit ? "within" : "ABOVE");
    std::fflush(stdout);
  }
}

// A plain copy of a gzip data file in `dir`, with its metadata.
std::string plain_copy(const std::string& stem, const std::string& dir) {
  const std::string out = dir + "/" + stem.substr(stem.find_last_of('/') + 1) + "-plain";
  if (!exists(out + ".data") && exists(stem + ".data.gz")) {
    gzFile f = gzopen((stem + ".data.gz").c_str(), "rb");
    std::ofstream o(out + ".data.tmp", std::ios::binary);
    std::vector<char> buf(1 << 20);
    int n;
    while ((n = gzread(f, buf.data(), static_cast<unsigned>(buf.size()))) > 0) o.write(buf.data(), n);
    gzclose(f);
    o.close();
    std::rename((out + ".data.tmp").c_str(), (out + ".data").c_str());
  }
  std::ifstream in(stem + ".names", std::ios::binary);
  std::ofstream(out + ".names", std::ios::binary) << in.rdbuf();
  return out;
}

// 100,000 declared columns and a few rows: memory must follow the data.
std::string wide_table(const std::string& dir) {
  const std::string stem = dir + "/columns100k";
  if (exists(stem + ".data")) return stem;
  std::ofstream names(stem + ".names"), data(stem + ".data");
  constexpr int columns = 100000;
  for (int j = 0; j < columns; ++j) names << 'c' << j << (j + 1 == columns ? ",string,class\n" : ",float,continuous\n");
  for (int r = 0; r < 3; ++r) {
    for (int j = 0; j + 1 < columns; ++j) data << (j * 7 + r) % 10 << '.' << r << ',';
    data << (r % 2 ? "yes\n" : "no\n");
  }
  return stem;
}

int check_numbers(int argc, char** argv) {
  int failures = 0;
  for (int i = 2; i < argc; ++i) {
    std::unique_ptr<tarn::inpout::stream> s(tarn::inpout::stream::FROM_FILE(argv[i], ','));
    long long fields = 0, differ = 0;
    while (s->read_line()) {
      for (const char* p = s->get_line();;) {
        const char* end = std::strchr(p, ',');
        const std::string text = end ? std::string(p, end) : std::string(p);
        double mine = 0, want = 0;
        char* stop = nullptr;
        want = std::strtod(text.c_str(), &stop);
        const bool want_ok = !text.empty() && *stop == '\0';
        const bool ok = tarn::util::parse_real(text.c_str(), text.size(), mine);
        if (ok != want_ok || (ok && std::memcmp(&mine, &want, sizeof mine) != 0 && !(std::isnan(mine) && std::isnan(want))))
          ++differ;
        ++fields;
        if (!end) break;
        p = end + 1;
      }
    }
    std::printf("%s: %lld fields, %lld read differently from strtod\n", argv[i], fields, differ);
    failures += differ != 0;
  }
  return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "--numbers") == 0) return check_numbers(argc, argv);
  int rounds = 5;
  std::vector<int> thread_counts = {1, online()};
  if (online() == 1) thread_counts = {1};
  std::vector<std::string> stems;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--rounds") == 0 && i + 1 < argc) {
      rounds = std::max(1, std::atoi(argv[++i]));
    } else if (std::strcmp(argv[i], "--threads") == 0 && i + 1 < argc) {
      thread_counts.clear();
      std::istringstream list(argv[++i]);
      for (int t; list >> t;) thread_counts.push_back(t);
    } else {
      stems.push_back(argv[i]);
    }
  }
  if (!stems.empty()) {
    for (const std::string& s : stems) run(s, s.substr(s.find_last_of('/') + 1), rounds, thread_counts);
    return 0;
  }
  const char* env = std::getenv("ARBOR_SCALE");
  const std::string scale = env ? env : "/tmp/arbor-scale";
  const char* tmp_env = std::getenv("ARBOR_BENCH_TMP");
  const std::string tmp = tmp_env ? tmp_env : "/tmp/arbor-bench";
  mkdir(tmp.c_str(), 0755);
  const std::string kdd = std::string(ARBOR_DATA_DIR) + "/kddcup10/kddcup10";
  run(kdd, "kddcup10", rounds, thread_counts);
  run(plain_copy(kdd, tmp), "kddcup10", rounds, thread_counts);
  run(scale + "/syn1m", "syn1m", rounds, thread_counts);
  run(scale + "/syn10m", "syn10m", rounds, thread_counts);
  if (exists(scale + "/syn10m.data.gz")) run(plain_copy(scale + "/syn10m", tmp), "syn10m", rounds, thread_counts);
  if (exists(scale + "/syn100m.names")) run(scale + "/syn100m", "syn100m", std::min(rounds, 3), thread_counts);
  run(wide_table(tmp), "columns100k", rounds, thread_counts);
  return 0;
}
