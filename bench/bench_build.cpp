// Build benchmark: load, growth (with the collapse pass), pruning and the
// training-set test timed separately, sequential and on worker threads.
//
// Usage: bench_build [-ff N] [-r ROUNDS] [-c4.5] [stem ...]
// Growth times are the best of ROUNDS runs (default 3).
// Without stems it runs kddcup10, adult, letter and the 1,000,000-row
// synthetic set ($ARBOR_SCALE/syn1m, default /tmp/arbor-scale; make it with
// ../shared/tools/make_scaling_sets.sh). A stem names <stem>.names and
// <stem>.data or <stem>.data.gz.

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <memory>
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

double cpu_total = 0;  // processor seconds of the last timed call

template <class F>
double seconds(F f) {
  tarn::util::cronos timer;
  timer.start();
  f();
  timer.stop();
  cpu_total = timer.get_process();
  return timer.get_elapsed();
}

struct settings {
  int cores = 0;
  int rounds = 3;
  decision_tree::PruningStrategy pruning = decision_tree::ERROR_BASED_PRUNING;
};

void run(const std::string& stem, const std::string& label, const settings& s) {
  const std::string data = exists(stem + ".data") ? stem + ".data" : stem + ".data.gz";
  if (!exists(stem + ".names") || !exists(data)) {
    std::printf("%-14s not found (%s), skipped\n", label.c_str(), stem.c_str());
    return;
  }
  table t("bench", true);
  const double load = seconds([&] {
    t.load_meta_data(std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(stem + ".names", ',')).get(), true);
    t.load_data(std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(data, ',')).get(), "?", true);
  });
  decision_tree tree("bench");
  tree.set_pruning_strategy(s.pruning);
  std::unique_ptr<w_sequence> cases(t.get_wsubset_all());
  // Growth as the front runs it, without pruning or evaluation; the best of
  // a few runs, since other load on the machine only ever adds time.
  double grow = 1e30, grow_ff = 1e30, grow_cpu = 1e30;
  for (int round = 0; round < s.rounds; ++round) {
    grow = std::min(grow, seconds([&] { tree.build_unpruned(&t, cases.get(), false); }));
    grow_cpu = std::min(grow_cpu, cpu_total);
    if (s.cores > 0) {
      decision_tree parallel("bench");
      parallel.set_pruning_strategy(decision_tree::NO_PRUNING);
      grow_ff = std::min(grow_ff, seconds([&] { parallel.build_pruned(&t, cases.get(), false, s.cores); }));
    }
  }
  const unsigned grown = tree.size();
  const double prune = seconds([&] { tree.prune(&t); });
  std::unique_ptr<conf_matrix> m;
  const double test = seconds([&] { m.reset(tree.get_tree()->predict(&t, cases.get())); });
  std::printf("%-14s %9u rows  load %6.3f s  grow %6.3f s (cpu %6.3f s)", label.c_str(), t.get_no_rows(), load, grow,
              grow_cpu);
  if (s.cores > 0) std::printf("  grow -ff %d %6.3f s (x%.2f)", s.cores, grow_ff, grow / grow_ff);
  std::printf("  prune %6.3f s  test %6.3f s  | grow+prune %6.3f s  size %u -> %u  train error %.3f%%\n", prune, test,
              grow + prune, grown, tree.size(), m->mis_perc() * 100);
}

}  // namespace

int main(int argc, char** argv) {
  settings s;
  std::vector<std::string> stems;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "-ff") == 0 && i + 1 < argc)
      s.cores = std::atoi(argv[++i]);
    else if (std::strcmp(argv[i], "-r") == 0 && i + 1 < argc)
      s.rounds = std::max(1, std::atoi(argv[++i]));
    else if (std::strcmp(argv[i], "-c4.5") == 0)
      s.pruning = decision_tree::C45_PRUNING;
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
