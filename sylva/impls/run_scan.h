#pragma once

// The sorting measure of a continuous attribute, computed from the runs of
// equal values instead of case by case. It serves builds in which every case
// weight is whole: there the case-by-case float sums are functions of the
// weights per value and class alone, whatever order the cases of one value
// come in, so a node's cases need to be grouped by value, not sorted as the
// case-by-case measure sorts them.
//
// One thing of the case-by-case scan does depend on that order: the flag of a
// class change since the last evaluated cut compares each case with the one
// before it, so when the run of the last evaluated cut holds several classes,
// the class of its last case decides whether the first cut after it inside a
// stretch of one class is evaluated or skipped. Such a cut is recorded; the
// result stands only when no recorded cut could have won, whichever way each
// went. Otherwise the scan reports that it cannot decide, and the caller
// measures by sorting.

#include <cstdint>
#include <vector>

#include "sylva/impls/quality_measure.h"

namespace sylva::impls {

// Float sums of whole weights as adding them case by case produces them:
// exact while they stay within 2^24; beyond, unit weights stop adding
// (2^24 + 1 rounds to 2^24) and stop subtracting at -2^24. Builds with other
// than unit weights keep every sum below 2^24, where both rules are exact.
struct whole_sums {
  static constexpr std::int64_t limit = std::int64_t(1) << 24;
  static float add(float x, std::int64_t w) {
    const std::int64_t r = static_cast<std::int64_t>(x) + w;
    return static_cast<float>(r > limit ? limit : r);
  }
  static float sub(float x, std::int64_t w) {
    const std::int64_t r = static_cast<std::int64_t>(x) - w;
    return static_cast<float>(r < -limit ? -limit : r);
  }
};

// One value of the attribute in the node: its code, the whole weight of its
// cases, and the class they share (or `mixed`). A mixed run also gives its
// weight and number of cases per class, `width` entries each.
struct value_run {
  static constexpr int mixed = -1;
  unsigned code = 0;
  std::int64_t weight = 0;
  int klass = mixed;
  const std::int64_t* class_weights = nullptr;
  const std::uint32_t* class_cases = nullptr;
  // The class of the run's last case where the cases of one value have an
  // order of their own (a distributed build orders them by global row), or
  // `mixed` where they have none. A scan that knows it never has to decline.
  int last = mixed;

  // `run` made the run of a value from its weights and cases per class
  // (`width` entries, slot 0 unused), its class `mixed` when several have
  // cases; returns how many have.
  static unsigned of_classes(value_run& run, unsigned code, const std::int64_t* weights,
                             const std::uint32_t* cases, unsigned width) {
    run = value_run();
    run.code = code;
    run.class_weights = weights;
    run.class_cases = cases;
    unsigned kinds = 0;
    for (unsigned y = 1; y < width; ++y) {
      if (cases[y] == 0) continue;
      run.weight += weights[y];
      run.klass = static_cast<int>(y);
      ++kinds;
    }
    if (kinds > 1) run.klass = mixed;
    return kinds;
  }
};

class run_scanner {
public:
  // `right` holds the class weights of the node's cases as its statistics
  // summed them (slot 0 unused); none of the cases is unknown.
  run_scanner(const std::vector<float>& right, float total, float min_obj);

  // Runs come in ascending code order. False once the scan has stopped.
  bool push(const value_run& run) {
    if (stopped_) return false;
    if (have_run_) close(run);
    hold(run);
    return !stopped_;
  }
  // The runs of a block of cases in ascending code order, whose last run
  // ends with the block; `weights` is null for unit weights. False once the
  // scan has stopped.
  bool push_block(const unsigned* codes, const unsigned* classes, const std::uint32_t* weights, size_t count);
  // The measure's result into `out`; false when it cannot be decided.
  bool finish(size_t cases, const options* opts, column::splitting_desc& out);

  // ---- Scanning a node's values in ranges, apart (a distributed build).
  static constexpr int no_class = -2;
  // What the class-change flag depends on: the classes of the runs since
  // the last evaluated cut (no_class, one class, or mixed), whether a cut
  // was evaluated yet, and the class of the last case before the first of
  // those runs.
  struct flag_state {
    int epoch_class = no_class;
    bool after_cut = false;
    int before_class = value_run::mixed;
  };
  // The first cut of a range whose evaluation depends on the flag state at
  // the range's start: its gain as best_cut::consider keeps it, the class of
  // the stretch it lies in, and how many runs the range had closed by then.
  struct deferred_cut {
    bool exists = false;
    int klass = value_run::mixed;
    unsigned closed = 0;
    best_cut cut;
  };
  // Starts this scan after the runs of the values before its range: `left`
  // holds their whole weights per class (slot 0 unused), `runs` their
  // number. With `flags` null the flag state there is not known: the first
  // cut that depends on it is deferred (and skipped, as are the cuts after
  // it in the same stretch of one class, which are skipped whatever it
  // turns out to be) until the first evaluated cut, after which the scan no
  // longer depends on its start.
  void resume(const std::vector<std::int64_t>& left, unsigned runs, const flag_state* flags);
  bool feasible() const { return feasible_; }
  const best_cut& best() const { return best_; }
  unsigned candidates() const { return candidates_; }
  unsigned closed() const { return closed_; }
  // Whether a cut was evaluated since the start of the range.
  bool synced() const { return synced_; }
  const deferred_cut& deferred() const { return deferred_; }
  flag_state flags() const { return flag_state{epoch_class_, after_cut_, before_class_}; }

private:
  enum class change { no, yes, maybe, entry };
  struct recorded_cut {
    float gain;
    unsigned position;
  };

  float add(float x, std::int64_t w) const { return saturating_ ? whole_sums::add(x, w) : x + static_cast<float>(w); }
  float sub(float x, std::int64_t w) const { return saturating_ ? whole_sums::sub(x, w) : x - static_cast<float>(w); }

  void hold(const value_run& run) {
    code_ = run.code;
    weight_ = run.weight;
    klass_ = run.klass;
    last_ = run.last;
    have_run_ = true;
    if (run.klass != value_run::mixed) return;
    for (unsigned y = 0; y < width_; ++y) {
      class_weights_[y] = run.class_weights[y];
      present_[y] = run.class_cases[y] > 0;
    }
  }

  // The cut between the held run and `next`.
  void close(const value_run& next) {
    ++closed_;
    if (klass_ != value_run::mixed) {
      left_.set(klass_, add(left_.weight(klass_), weight_));
      right_.set(klass_, sub(right_.weight(klass_), weight_));
      if (epoch_class_ == no_class) epoch_class_ = klass_;
      else if (epoch_class_ != klass_) epoch_class_ = value_run::mixed;
    } else {
      for (unsigned y = 1; y < width_; ++y) {
        left_.set(y, add(left_.weight(y), class_weights_[y]));
        right_.set(y, sub(right_.weight(y), class_weights_[y]));
      }
      epoch_class_ = value_run::mixed;
    }
    l_ = add(l_, weight_);
    ++position_;
    if (l_ < least_) return;
    if (l_ > upper_limit_) {
      stopped_ = true;
      return;
    }
    ++candidates_;
    const change flag = class_change();
    // Without a class change the held run is all of one class: the cut lies
    // inside a stretch of that class when the next run is too and still fits.
    const bool inside = flag != change::yes && next.klass == klass_ && add(l_, next.weight) <= upper_limit_;
    if (flag == change::no && inside) return;
    if (flag == change::entry && inside) return defer(next);
    const float gain = (base_ - (left_.info() + right_.info()) / known_) * factor_;
    if (flag == change::maybe && inside) return undecided(gain);
    if (best_.consider(gain, 0.0f, l_, known_, code_, next.code)) best_position_ = position_;
    begin_epoch();
  }

  change class_change() const {
    if (epoch_class_ == value_run::mixed) return change::yes;
    if (!synced_) return change::entry;
    if (!after_cut_) return change::no;
    if (before_class_ != value_run::mixed) return before_class_ != epoch_class_ ? change::yes : change::no;
    return before_present_[static_cast<unsigned>(epoch_class_)] ? change::maybe : change::yes;
  }
  void begin_epoch();
  void undecided(float gain);
  void defer(const value_run& next);

  const unsigned width_;
  const float total_, known_;
  float base_ = 0, least_ = 0, upper_limit_ = 0, factor_ = 1;
  bool saturating_;
  class_side left_, right_;
  float l_ = 0;
  best_cut best_;
  unsigned best_position_ = 0, position_ = 0, candidates_ = 0;
  bool stopped_ = false, have_run_ = false, feasible_ = true;
  // The held run: the last one pushed, whose cut waits for the next run.
  unsigned code_ = 0;
  std::int64_t weight_ = 0;
  int klass_ = value_run::mixed;
  int last_ = value_run::mixed;
  std::vector<std::int64_t> class_weights_;
  std::vector<char> present_;
  // Classes of the runs since the last evaluated cut: none yet, one class,
  // or several; and the run that cut followed, whose last case the flag
  // compares with. Before the first evaluated cut there is no such run.
  int epoch_class_ = no_class;
  bool after_cut_ = false;
  int before_class_ = value_run::mixed;
  std::vector<char> before_present_;
  std::vector<recorded_cut> undecided_;
  std::vector<std::int64_t> mixed_weights_;
  std::vector<std::uint32_t> mixed_cases_;
  // Resumed ranges: runs closed since the start, whether the flag state is
  // known, and the deferred cut.
  unsigned closed_ = 0;
  bool synced_ = true;
  deferred_cut deferred_;
};

}  // namespace sylva::impls
