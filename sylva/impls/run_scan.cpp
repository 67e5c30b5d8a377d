#include "sylva/impls/run_scan.h"


namespace sylva::impls {

run_scanner::run_scanner(const std::vector<float>& right, float total, float min_obj)
    : width_(static_cast<unsigned>(right.size())), total_(total), known_(total - 0.0f),
      saturating_(total > static_cast<float>(whole_sums::limit)), class_weights_(right.size()),
      present_(right.size()), before_present_(right.size()) {
  left_.assign(width_, 0.0f);
  right_.assign(width_, 0.0f);
  for (unsigned y = 0; y < width_; ++y) right_.set(y, right[y]);
  if (known_ < 2 * min_obj) {
    stopped_ = true;
    feasible_ = false;
    return;
  }
  base_ = right_.info() / known_;
  least_ = min_split(known_, min_obj, width_ - 1);
  upper_limit_ = known_ - least_;
  factor_ = known_ / (0.0f + known_);
}

void run_scanner::begin_epoch() {
  before_class_ = klass_ == value_run::mixed ? last_ : klass_;
  if (before_class_ == value_run::mixed) before_present_ = present_;
  epoch_class_ = no_class;
  after_cut_ = true;
  synced_ = true;
}

void run_scanner::resume(const std::vector<std::int64_t>& left, unsigned runs, const flag_state* flags) {
  position_ = runs;
  std::int64_t l = 0;
  for (unsigned y = 1; y < width_; ++y) {
    left_.set(y, add(0.0f, left[y]));
    right_.set(y, sub(right_.weight(y), left[y]));
    l += left[y];
  }
  l_ = add(0.0f, l);
  synced_ = flags != nullptr;
  if (flags) {
    epoch_class_ = flags->epoch_class;
    after_cut_ = flags->after_cut;
    before_class_ = flags->before_class;
  }
}

// The first cut whose evaluation depends on the unknown start of the range
// is kept aside; whatever it turns out to be, the cuts after it in its
// stretch are skipped (evaluated, it makes the stretch's class the one
// before them; skipped, the state that skipped it stands).
void run_scanner::defer(const value_run& next) {
  if (deferred_.exists) return;
  deferred_.exists = true;
  deferred_.klass = klass_;
  deferred_.closed = closed_;
  const float gain = (base_ - (left_.info() + right_.info()) / known_) * factor_;
  deferred_.cut.consider(gain, 0.0f, l_, known_, code_, next.code);
}

// A cut that is evaluated or skipped depending on the order of the cases of
// the run before the epoch; either way no class change is pending after it.
void run_scanner::undecided(float gain) {
  undecided_.push_back(recorded_cut{gain, position_});
  before_class_ = klass_;
  epoch_class_ = no_class;
}

bool run_scanner::push_block(const unsigned* codes, const unsigned* classes, const std::uint32_t* weights,
                             size_t count) {
  value_run run;
  for (size_t k = 0; k < count;) {
    run.code = codes[k];
    const unsigned klass = classes[k];
    run.weight = weights ? weights[k] : 1;
    bool mixed = false;
    size_t j = k + 1;
    for (; j < count && codes[j] == run.code; ++j) {
      mixed |= classes[j] != klass;
      run.weight += weights ? weights[j] : 1;
    }
    run.klass = static_cast<int>(klass);
    if (mixed) {
      mixed_weights_.assign(width_, 0);
      mixed_cases_.assign(width_, 0);
      for (size_t m = k; m < j; ++m) {
        mixed_weights_[classes[m]] += weights ? weights[m] : 1;
        ++mixed_cases_[classes[m]];
      }
      run.klass = value_run::mixed;
      run.class_weights = mixed_weights_.data();
      run.class_cases = mixed_cases_.data();
    }
    if (!push(run)) return false;
    k = j;
  }
  return true;
}

bool run_scanner::finish(size_t cases, const options* opts, column::splitting_desc& out) {
  if (!feasible_) {
    out.fail();
    return true;
  }
  for (const recorded_cut& c : undecided_)
    if (c.gain > best_.gain || (c.gain == best_.gain && c.position < best_position_)) return false;
  finish_continuous(best_, candidates_, total_, cases, opts, out);
  return true;
}

}  // namespace sylva::impls
