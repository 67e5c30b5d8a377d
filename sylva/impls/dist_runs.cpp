// Distributed whole-weight growth: the sorting measure. Each rank sends the
// runs of equal values its rows form in every node to the ranks that own
// those values; the owners merge them, scan their ranges from the exact left
// weights at the range's start, and every rank combines the owners' reports
// in value order into the measure (dist_scan.h). Per level this takes one
// exchange and two gathers, however many nodes the level has.

#include <algorithm>
#include <cstring>
#include <numeric>

#include "sylva/impls/dist_grow_engine.h"
#include "sylva/impls/quality_measure.h"
#include "sylva/impls/table.h"

namespace sylva::impls::dist {

namespace {

// A node's sorted list is read a stretch at a time when its table of codes
// and classes would be larger than this many cells per case.
constexpr std::size_t cells_per_case = 4;

// What an owner tells every rank about its part of one job.
struct range_summary {
  std::uint32_t runs = 0;
  std::vector<std::int64_t> totals;  // per class
  value_run first;                   // the range's first run (code, weight, class)
};

void append_run(owned_runs& out, unsigned width, unsigned code, std::uint16_t last_class, const std::int64_t* weights,
                const std::uint32_t* cases) {
  out.codes.push_back(code);
  out.last_class.push_back(last_class);
  if (weights) out.weights.insert(out.weights.end(), weights, weights + width);
  out.cases.insert(out.cases.end(), cases, cases + width);
}

// The runs of one job from every rank merged by value, read where they
// arrived: each rank packs a run as its code, the class of its last row,
// and per class the cases and (unless all weights are 1) their weights;
// each rank's runs come in ascending codes, one per value. Ranks hold
// consecutive rows of the file in rank order, so a value's last row is the
// last one of the highest rank that has the value.
class run_merger {
public:
  run_merger(unsigned width, bool unit) : width_(width), unit_(unit), w_(width, 0), c_(width, 0) {}
  size_t record_size() const { return cases_at + 4 * (width_ - 1) + (unit_ ? 0 : 8 * (width_ - 1)); }

  // Calls visit(run) for each value in ascending order until it returns
  // false. The run's class weights and cases live until the next call.
  template <class F>
  void merge(const run_records* from, unsigned ranks, F&& visit) {
    at_.assign(ranks, 0);
    for (;;) {
      unsigned code = ~0u;
      for (unsigned s = 0; s < ranks; ++s)
        if (at_[s] < from[s].count) code = std::min(code, field<std::uint32_t>(from[s], at_[s], 0));
      if (code == ~0u) return;
      std::fill(w_.begin(), w_.end(), 0);
      std::fill(c_.begin(), c_.end(), 0);
      std::uint16_t last_class = 0;
      for (unsigned s = 0; s < ranks; ++s) {
        if (at_[s] >= from[s].count || field<std::uint32_t>(from[s], at_[s], 0) != code) continue;
        last_class = add(from[s], at_[s]++);
      }
      if (!visit(as_run(code, last_class))) return;
    }
  }

private:
  template <class T>
  T field(const run_records& r, std::uint32_t i, size_t offset) const {
    T v;
    std::memcpy(&v, r.at + i * record_size() + offset, sizeof v);
    return v;
  }
  // Adds record i to the run; returns the class of its last row.
  std::uint16_t add(const run_records& r, std::uint32_t i) {
    for (unsigned y = 1; y < width_; ++y) {
      const std::uint32_t cases = field<std::uint32_t>(r, i, cases_at + 4 * (y - 1));
      c_[y] += cases;
      w_[y] += unit_ ? cases : field<std::int64_t>(r, i, cases_at + 4 * (width_ - 1) + 8 * (y - 1));
    }
    return field<std::uint16_t>(r, i, 4);
  }
  value_run as_run(unsigned code, std::uint16_t last_class) const {
    value_run run;
    value_run::of_classes(run, code, w_.data(), c_.data(), width_);
    run.last = static_cast<int>(last_class);
    return run;
  }

  static constexpr size_t cases_at = 6;  // after the code and the class
  const unsigned width_;
  const bool unit_;
  std::vector<std::int64_t> w_;
  std::vector<std::uint32_t> c_;
  std::vector<std::uint32_t> at_;
};

}  // namespace

void whole_engine::local_runs(const level_node& x, unsigned a, owned_runs& out) const {
  out.clear();
  const size_t n = x.end - x.begin;
  if (n == 0) return;
  const index_range& r = x.ranges[a];
  const unsigned slots = r.second - r.first + 1, base = r.first - 1;
  std::vector<std::int64_t> w(width_, 0);
  std::vector<std::uint32_t> c(width_, 0);
  if (!listed_[a] || static_cast<size_t>(slots) * width_ <= cells_per_case * n + 64) {
    // Kept between calls, one table per thread.
    thread_local std::vector<std::int64_t> weights;
    thread_local std::vector<std::uint32_t> cases, last;
    thread_local std::vector<char> seen;
    weights.assign(static_cast<size_t>(slots) * width_, 0);
    cases.assign(static_cast<size_t>(slots) * width_, 0);
    last.assign(slots, 0);
    seen.assign(slots, 0);
    whole::with_codes(codes_[a], [&](auto codes) {
      for (size_t i = x.begin; i < x.end; ++i) {
        const std::uint32_t row = rows_[i];
        const unsigned s = codes[row] - base;
        weights[s * width_ + classes_[row]] += weight(row);
        ++cases[s * width_ + classes_[row]];
        if (!seen[s] || row > last[s]) last[s] = row;
        seen[s] = 1;
      }
    });
    for (unsigned s = 1; s < slots; ++s)
      if (seen[s])
        append_run(out, width_, s + base, classes_[last[s]], unit_ ? nullptr : &weights[s * width_],
                   &cases[s * width_]);
    return;
  }
  const std::vector<std::uint32_t>& list = lists_[a];
  whole::with_codes(codes_[a], [&](auto codes) {
    for (size_t i = x.begin; i < x.end;) {
      const unsigned code = codes[list[i]];
      std::fill(w.begin(), w.end(), 0);
      std::fill(c.begin(), c.end(), 0);
      std::uint32_t last = list[i];
      size_t j = i;
      for (; j < x.end && codes[list[j]] == code; ++j) {
        const std::uint32_t row = list[j];
        w[classes_[row]] += weight(row);
        ++c[classes_[row]];
        last = std::max(last, row);
      }
      append_run(out, width_, code, classes_[last], unit_ ? nullptr : w.data(), c.data());
      i = j;
    }
  });
}

void whole_engine::pack_runs(const job& j, const owned_runs& local, std::vector<packer>& to) const {
  std::vector<std::uint32_t> count(to.size(), 0);
  for (size_t i = 0; i < local.size(); ++i) ++count[owner_of(j.attr, local.codes[i])];
  for (size_t d = 0; d < to.size(); ++d) to[d].put(count[d]);
  for (size_t i = 0; i < local.size(); ++i) {
    packer& p = to[owner_of(j.attr, local.codes[i])];
    p.put(local.codes[i]);
    p.put(local.last_class[i]);
    p.put(&local.cases[i * width_ + 1], width_ - 1);
    if (!unit_) p.put(&local.weights[i * width_ + 1], width_ - 1);
  }
}

void whole_engine::measure_runs(const std::vector<level_node>& level, const std::vector<job>& jobs,
                                std::vector<std::vector<column::splitting_desc>>& descs) {
  if (jobs.empty()) return;
  const unsigned k = static_cast<unsigned>(comm_.size());
  // 1. Each rank's runs of every job go to their owners.
  std::vector<packer> to(k);
  // Room for every run this rank may send, reserved once so that the blocks
  // are never copied as they grow: one run per row of the node here or per
  // value of its range the owner holds, whichever is fewer (pages reserved
  // and never written take no memory).
  const size_t record = run_merger(width_, unit_).record_size();
  for (unsigned d = 0; d < k; ++d) {
    size_t room = 0;
    for (const job& j : jobs) {
      const level_node& x = level[j.node];
      const index_range& r = x.ranges[j.attr];
      const std::vector<unsigned>& b = bounds_[j.attr];
      const unsigned low = std::max(r.first, b[d]), high = std::min(r.second + 1, b[d + 1]);
      room += sizeof(std::uint32_t) + std::min<size_t>(x.end - x.begin, high > low ? high - low : 0) * record;
    }
    to[d].bytes().reserve(room);
  }
  // Jobs are counted a batch at a time on the pool's threads, then packed in
  // order: a batch's runs are all held at once, so past one job per thread
  // a batch covers a bounded number of rows (and of jobs, the many small
  // nodes of deep levels).
  constexpr size_t batch_rows = size_t(1) << 18, batch_jobs = 4096;
  std::vector<owned_runs> counted;
  for (size_t first = 0; first < jobs.size();) {
    size_t end = first, rows = 0;
    while (end < jobs.size() && (end - first < pool_.size() || (end - first < batch_jobs && rows < batch_rows))) {
      const level_node& x = level[jobs[end++].node];
      rows += x.end - x.begin;
    }
    if (counted.size() < end - first) counted.resize(end - first);
    pool_.for_each_index(end - first, [&](size_t b) {
      local_runs(level[jobs[first + b].node], jobs[first + b].attr, counted[b]);
    });
    for (size_t b = 0; first + b < end; ++b) pack_runs(jobs[first + b], counted[b], to);
    first = end;
  }
  std::vector<std::vector<char>> out(k);
  for (unsigned d = 0; d < k; ++d) out[d] = std::move(to[d].bytes());
  const std::vector<std::vector<char>> in = comm_.all_to_all(out);

  // 2. Where each job's runs from each rank lie in what arrived: the owner
  // merges them by value as it reads them, without a copy.
  std::vector<std::vector<run_records>> received(jobs.size(), std::vector<run_records>(k));
  for (unsigned s = 0; s < k; ++s) {
    unpacker from(in[s]);
    for (size_t j = 0; j < jobs.size(); ++j) {
      run_records& r = received[j][s];
      r.count = from.get<std::uint32_t>();
      r.at = from.skip(r.count * record);
    }
  }

  // 3. Owners scan; every rank combines the reports in range order.
  std::vector<std::vector<range_scan>> reports;
  owner_scans(level, jobs, received, reports);
  for (size_t j = 0; j < jobs.size(); ++j) {
    const level_node& x = level[jobs[j].node];
    _decision_node* node = x.subtree->get_node();
    column::splitting_desc& d = descs[jobs[j].node][jobs[j].attr];
    const run_scanner probe(node->get_class_distribution(), node->get_cases_weight(), settings_.min_obj);
    if (!probe.feasible()) {
      d.fail();
      continue;
    }
    const composed_scan scan = compose(reports[j].data(), reports[j].size());
    finish_continuous(scan.best, scan.candidates, node->get_cases_weight(), x.count, settings_.opts, d);
  }
}

void whole_engine::owner_scans(const std::vector<level_node>& level, const std::vector<job>& jobs,
                               const std::vector<std::vector<run_records>>& received,
                               std::vector<std::vector<range_scan>>& reports) {
  const unsigned k = static_cast<unsigned>(comm_.size()), me = static_cast<unsigned>(comm_.rank());
  run_merger merger(width_, unit_);
  // What each owner holds of each job: runs, weights per class, first run.
  packer summary;
  std::vector<std::uint32_t> owned(jobs.size(), 0);
  for (size_t j = 0; j < jobs.size(); ++j) {
    std::vector<std::int64_t> totals(width_, 0);
    value_run first;
    merger.merge(received[j].data(), k, [&](const value_run& r) {
      if (owned[j]++ == 0) first = r;
      for (unsigned y = 1; y < width_; ++y) totals[y] += r.class_weights[y];
      return true;
    });
    summary.put(owned[j]);
    if (owned[j] == 0) continue;
    summary.put(totals.data(), width_);
    summary.put(first.code);
    summary.put(static_cast<std::int32_t>(first.klass));
    summary.put(first.weight);
  }
  const std::vector<std::vector<char>> summaries = comm_.all_gather(summary.bytes());
  std::vector<std::vector<range_summary>> by_job(jobs.size(), std::vector<range_summary>(k));
  for (unsigned s = 0; s < k; ++s) {
    unpacker u(summaries[s]);
    for (size_t j = 0; j < jobs.size(); ++j) {
      range_summary& r = by_job[j][s];
      r.runs = u.get<std::uint32_t>();
      if (r.runs == 0) continue;
      r.totals.resize(width_);
      u.get(r.totals.data(), width_);
      r.first.code = u.get<std::uint32_t>();
      r.first.klass = u.get<std::int32_t>();
      r.first.weight = u.get<std::int64_t>();
    }
  }

  // This rank's scans of the ranges it owns.
  packer scans;
  const std::vector<std::int64_t> no_weights(width_, 0);
  const std::vector<std::uint32_t> no_cases(width_, 0);
  for (size_t j = 0; j < jobs.size(); ++j) {
    if (owned[j] == 0) continue;
    _decision_node* node = level[jobs[j].node].subtree->get_node();
    run_scanner scan(node->get_class_distribution(), node->get_cases_weight(), settings_.min_obj);
    std::vector<std::int64_t> left(width_, 0);
    unsigned before = 0;
    for (unsigned s = 0; s < me; ++s) {
      if (by_job[j][s].runs == 0) continue;
      before += by_job[j][s].runs;
      for (unsigned y = 1; y < width_; ++y) left[y] += by_job[j][s].totals[y];
    }
    scan.resume(left, before, nullptr);
    merger.merge(received[j].data(), k, [&](const value_run& r) { return scan.push(r); });
    for (unsigned s = me + 1; s < k; ++s) {
      if (by_job[j][s].runs == 0) continue;
      // The cut after the range's last run looks at the next range's first.
      value_run next = by_job[j][s].first;
      next.class_weights = no_weights.data();
      next.class_cases = no_cases.data();
      scan.push(next);
      break;
    }
    scans.put(static_cast<std::uint32_t>(j));
    scans.put(report(scan, true));
  }
  const std::vector<std::vector<char>> all = comm_.all_gather(scans.bytes());
  reports.assign(jobs.size(), std::vector<range_scan>(k));
  for (unsigned s = 0; s < k; ++s) {
    unpacker u(all[s]);
    while (!u.done()) {
      const std::uint32_t j = u.get<std::uint32_t>();
      reports[j][s] = u.get<range_scan>();
    }
  }
}

}  // namespace sylva::impls::dist
