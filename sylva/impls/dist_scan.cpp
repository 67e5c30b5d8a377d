#include "sylva/impls/dist_scan.h"

namespace sylva::impls::dist {

int join_classes(int a, int b) {
  if (a == run_scanner::no_class) return b;
  if (b == run_scanner::no_class || a == b) return a;
  return value_run::mixed;
}

range_scan report(const run_scanner& scan, bool has_runs) {
  range_scan r;
  r.has_runs = has_runs;
  if (!has_runs) return r;
  r.synced = scan.synced();
  r.candidates = scan.candidates();
  r.closed = scan.closed();
  const best_cut& b = scan.best();
  r.best_gain = b.gain;
  r.best_split_info = b.split_info;
  r.best_lower = b.lower;
  r.best_upper = b.upper;
  const run_scanner::deferred_cut& d = scan.deferred();
  r.deferred = d.exists;
  r.deferred_class = d.klass;
  r.deferred_closed = d.closed;
  r.deferred_gain = d.cut.gain;
  r.deferred_split_info = d.cut.split_info;
  r.deferred_lower = d.cut.lower;
  r.deferred_upper = d.cut.upper;
  const run_scanner::flag_state f = scan.flags();
  r.epoch_class = f.epoch_class;
  r.after_cut = f.after_cut;
  r.before_class = f.before_class;
  return r;
}

namespace {

// The flag at a range's deferred cut, from the state at the range's start:
// the runs the range closed before the cut are all of the cut's class.
bool deferred_evaluated(const run_scanner::flag_state& start, int klass) {
  const int epoch = join_classes(start.epoch_class, klass);
  if (epoch == value_run::mixed) return true;
  if (!start.after_cut) return false;
  return start.before_class != epoch;
}

// Keeps `g` when strictly better: ties keep the earlier cut.
void keep_better(best_cut& best, float gain, float split_info, unsigned lower, unsigned upper) {
  if (!(gain > best.gain)) return;
  best.gain = gain;
  best.split_info = split_info;
  best.lower = lower;
  best.upper = upper;
}

}  // namespace

composed_scan compose(const range_scan* ranges, std::size_t count) {
  composed_scan out;
  run_scanner::flag_state state;
  for (std::size_t i = 0; i < count; ++i) {
    const range_scan& r = ranges[i];
    if (!r.has_runs) continue;
    bool evaluated = false;
    if (r.deferred) {
      evaluated = deferred_evaluated(state, r.deferred_class);
      if (evaluated)
        keep_better(out.best, r.deferred_gain, r.deferred_split_info, r.deferred_lower, r.deferred_upper);
    }
    keep_better(out.best, r.best_gain, r.best_split_info, r.best_lower, r.best_upper);
    out.candidates += r.candidates;
    if (r.synced) {
      state = run_scanner::flag_state{r.epoch_class, r.after_cut != 0, r.before_class};
    } else if (evaluated) {
      // The deferred cut began an epoch: the runs after it are of its class.
      state.before_class = r.deferred_class;
      state.after_cut = true;
      state.epoch_class = r.closed > r.deferred_closed ? r.deferred_class : run_scanner::no_class;
    } else {
      state.epoch_class = join_classes(state.epoch_class, r.epoch_class);
    }
  }
  return out;
}

}  // namespace sylva::impls::dist
