// Build benchmark: load, growth (with the collapse pass), pruning and the
// training-set test timed separately; growth sequential and on worker
// threads, with the speedups, and optionally by tree level.
//
// Usage: bench_build [-ff N[,N...]] [-r ROUNDS] [-c4.5] [-levels] [stem ...]
// Growth times are medians of ROUNDS runs (default 3); the machine's other
// load varies from run to run. Without stems it runs kddcup10, adult,
// letter and the 1,000,000-row synthetic set ($ARBOR_SCALE/syn1m, default
// /tmp/arbor-scale; make it with ../shared/tools/make_scaling_sets.sh). A
// stem names <stem>.names and <stem>.data or <stem>.data.gz.

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/cronos.h"

using namespace sylva::impls;

namespace {

bool exists(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0;
}

struct timing {
  double wall = 0, cpu = 0;
};

template <class F>
timing timed(F f) {
  tarn::util::cronos timer;
  timer.start();
  f();
  timer.stop();
  return {timer.get_elapsed(), timer.get_process()};
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

// Peak resident memory of the process so far, in MB (VmHWM).
double peak_mb() {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return -1;
  char line[256];
  double kb = -1;
  while (std::fgets(line, sizeof line, f))
    if (std::strncmp(line, "VmHWM:", 6) == 0) kb = std::atof(line + 6);
  std::fclose(f);
  return kb / 1024;
}

// The memory a build may use: code width times rows for every column, one
// case list of 8 bytes per row, and the domains' values.
double bound_mb(const table& t) {
  double bytes = 8.0 * t.get_no_rows();
  for (unsigned a = 0; a < t.get_no_attributes(); ++a) {
    const column* c = t.get_attribute(a);
    const double rows = t.get_no_rows(), values = c->get_o_set()->size_of_known();
    if (dynamic_cast<const column_bool*>(c)) bytes += rows / 8;
    else if (dynamic_cast<const column_typed<unsigned char>*>(c)) bytes += rows;
    else if (dynamic_cast<const column_typed<unsigned short>*>(c)) bytes += 2 * rows;
    else if (dynamic_cast<const column_typed<unsigned int>*>(c)) bytes += 4 * rows;
    else if (dynamic_cast<const column_typed<unsigned long long>*>(c)) bytes += 8 * rows;
    bytes += values * (c->get_o_set()->get_datatype() == "double" ? 8 : c->get_o_set()->get_datatype() == "string" ? 40 : 4);
  }
  return bytes / (1024 * 1024);
}

struct settings {
  std::vector<int> cores;
  int rounds = 3;
  bool levels = false;
  decision_tree::PruningStrategy pruning = decision_tree::ERROR_BASED_PRUNING;
};

// Growth as the tree front runs it (whole-weight growth when the build
// qualifies, growth by sorting otherwise), unpruned.
std::unique_ptr<_decision_tree> grow(table& t, w_sequence* cases, int cores, growth_profile* profile) {
  auto tree = std::make_unique<_decision_tree>();
  tree->observe(nullptr, profile);
  options opts;
  if (!tree->grow_whole(&t, nullptr, decision_tree::GAIN_RATIO, &opts, 2.0f, cores)) {
    std::unique_ptr<w_sequence> all;
    if (!cases) {
      all.reset(t.get_wsubset_all());
      cases = all.get();
    }
    tree->build(&t, cases, decision_tree::GAIN_RATIO, &opts, 2.0f, cores);
    tree->get_node()->forget_cases();
  }
  return tree;
}

void print_levels(const growth_profile& p) {
  std::printf("    depth     nodes        cases    seconds\n");
  for (size_t d = 0; d < p.seconds.size(); ++d)
    std::printf("    %5zu %9llu %12llu %10.4f\n", d, static_cast<unsigned long long>(p.nodes[d]),
                static_cast<unsigned long long>(p.cases[d]), p.seconds[d]);
}

void run(const std::string& stem, const std::string& label, const settings& s) {
  const std::string data = exists(stem + ".data") ? stem + ".data" : stem + ".data.gz";
  if (!exists(stem + ".names") || !exists(data)) {
    std::printf("%-14s not found (%s), skipped\n", label.c_str(), stem.c_str());
    return;
  }
  table t("bench", true);
  const timing load = timed([&] {
    t.load_meta_data(std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(stem + ".names", ',')).get(), true);
    t.load_data(std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(data, ',')).get(), "?", true);
  });
  std::string message;
  t.set_consistency_for_tree(true, message);
  const double loaded_peak = peak_mb();
  // The first growth runs as the tree front runs it, without a case list
  // when the whole-weight growth takes the build: its peak is the build's.
  std::unique_ptr<_decision_tree> first = grow(t, nullptr, 0, nullptr);
  const double grown_peak = peak_mb();
  first.reset();
  std::printf("%-14s memory: bound %.1f MB (x1.5 = %.1f), peak after loading %.1f MB, after growth %.1f MB\n",
              label.c_str(), bound_mb(t), 1.5 * bound_mb(t), loaded_peak, grown_peak);
  std::unique_ptr<w_sequence> cases(t.get_wsubset_all());

  std::vector<double> wall, cpu;
  std::unique_ptr<_decision_tree> tree;
  growth_profile profile;
  // Growth sorts the root's list in place where weights may turn
  // fractional, and the tree depends on the order it starts from: each
  // round starts from the table's order, as a build does.
  for (int round = 0; round < s.rounds; ++round) {
    w_sequence fresh(*cases);
    const timing g = timed([&] { tree = grow(t, &fresh, 0, round == 0 && s.levels ? &profile : nullptr); });
    wall.push_back(g.wall);
    cpu.push_back(g.cpu);
  }
  const double sequential = median(wall);
  std::printf("%-14s %9u rows  load %6.3f s  grow %6.3f s (cpu %6.3f s)  size %u\n", label.c_str(), t.get_no_rows(),
              load.wall, sequential, median(cpu), tree->size());
  for (int n : s.cores) {
    std::vector<double> parallel;
    for (int round = 0; round < s.rounds; ++round) {
      w_sequence fresh(*cases);
      parallel.push_back(timed([&] { grow(t, &fresh, n, nullptr); }).wall);
    }
    std::printf("%-14s grow -ff %-2d %6.3f s  speedup x%.2f\n", "", n, median(parallel), sequential / median(parallel));
  }

  decision_tree front("bench");
  front.set_pruning_strategy(s.pruning);
  front.build_unpruned(&t, cases.get(), false);
  const unsigned grown = front.size();
  const double prune = timed([&] { front.prune(&t); }).wall;
  std::unique_ptr<conf_matrix> m;
  const double test = timed([&] { m.reset(front.get_tree()->predict(&t, cases.get())); }).wall;
  std::printf("%-14s prune %6.3f s (%u -> %u nodes)  test %6.3f s  train error %.3f%%\n", "", prune, grown, front.size(),
              test, m->mis_perc() * 100);
  if (s.levels) print_levels(profile);
}

std::vector<int> parse_list(const char* text) {
  std::vector<int> out;
  std::stringstream ss(text);
  std::string item;
  while (std::getline(ss, item, ','))
    if (std::atoi(item.c_str()) > 0) out.push_back(std::atoi(item.c_str()));
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  settings s;
  std::vector<std::string> stems;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "-ff") == 0 && i + 1 < argc)
      s.cores = parse_list(argv[++i]);
    else if (std::strcmp(argv[i], "-r") == 0 && i + 1 < argc)
      s.rounds = std::max(1, std::atoi(argv[++i]));
    else if (std::strcmp(argv[i], "-c4.5") == 0)
      s.pruning = decision_tree::C45_PRUNING;
    else if (std::strcmp(argv[i], "-levels") == 0)
      s.levels = true;
    else
      stems.push_back(argv[i]);
  }
  if (!stems.empty()) {
    for (const std::string& stem : stems) run(stem, stem.substr(stem.find_last_of('/') + 1), s);
    return 0;
  }
  const std::string data = ARBOR_DATA_DIR;
  const char* env = std::getenv("ARBOR_SCALE");
  const std::string scale = env ? env : "/tmp/arbor-scale";
  for (const char* name : {"kddcup10", "adult", "letter"}) run(data + "/" + name + "/" + name, name, s);
  run(scale + "/syn1m", "syn1m", s);
  return 0;
}
