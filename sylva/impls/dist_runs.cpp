// Distributed whole-weight growth: the sorting measure. Each rank sends the
// runs of equal values its rows form in every node to the ranks that own
// those values; the owners merge them, scan their ranges from the exact left
// weights at the range's start, and every rank combines the owners' reports
// in value order into the measure (dist_scan.h). Per level this takes one
// exchange and two gathers, however many nodes the level has.

#include <algorithm>
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

void append_run(owned_runs& out, unsigned width, unsigned code, std::uint64_t last_row, unsigned last_class,
                const std::int64_t* weights, const std::uint32_t* cases) {
  out.codes.push_back(code);
  out.last_row.push_back(last_row);
  out.last_class.push_back(last_class);
  out.weights.insert(out.weights.end(), weights, weights + width);
  out.cases.insert(out.cases.end(), cases, cases + width);
}

// The run's class: the only class with cases, or mixed.
value_run as_run(const owned_runs& r, size_t i, unsigned width) {
  value_run run;
  run.code = r.codes[i];
  run.class_weights = &r.weights[i * width];
  run.class_cases = &r.cases[i * width];
  unsigned kinds = 0;
  for (unsigned y = 1; y < width; ++y) {
    if (run.class_cases[y] == 0) continue;
    run.weight += run.class_weights[y];
    run.klass = static_cast<int>(y);
    ++kinds;
  }
  if (kinds > 1) run.klass = value_run::mixed;
  run.last = static_cast<int>(r.last_class[i]);
  return run;
}

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
        append_run(out, width_, s + base, first_row_ + last[s], classes_[last[s]], &weights[s * width_],
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
      append_run(out, width_, code, first_row_ + last, classes_[last], w.data(), c.data());
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
    p.put(local.last_row[i]);
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

  // 2. The owner merges the runs of one value from all ranks.
  std::vector<owned_runs> mine(jobs.size());
  std::vector<unpacker> from;
  for (unsigned s = 0; s < k; ++s) from.emplace_back(in[s]);
  owned_runs gathered;
  std::vector<std::int64_t> w(width_, 0);
  std::vector<std::uint32_t> c(width_, 0);
  std::vector<std::uint32_t> order;
  for (size_t j = 0; j < jobs.size(); ++j) {
    gathered.clear();
    order.clear();
    for (unsigned s = 0; s < k; ++s) {
      const size_t start = order.size();
      const std::uint32_t n = from[s].get<std::uint32_t>();
      for (std::uint32_t i = 0; i < n; ++i) {
        const std::uint32_t code = from[s].get<std::uint32_t>();
        const std::uint64_t last_row = from[s].get<std::uint64_t>();
        const std::uint32_t last_class = from[s].get<std::uint32_t>();
        c[0] = 0;
        w[0] = 0;
        from[s].get(&c[1], width_ - 1);
        if (unit_)
          for (unsigned y = 1; y < width_; ++y) w[y] = c[y];
        else
          from[s].get(&w[1], width_ - 1);
        order.push_back(static_cast<std::uint32_t>(gathered.size()));
        append_run(gathered, width_, code, last_row, last_class, w.data(), c.data());
      }
      // Each rank's runs come in ascending codes: merged one sender at a time.
      std::inplace_merge(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(start), order.end(),
                         [&](std::uint32_t p, std::uint32_t q) { return gathered.codes[p] < gathered.codes[q]; });
    }
    owned_runs& merged = mine[j];
    for (size_t i = 0; i < order.size();) {
      const std::uint32_t code = gathered.codes[order[i]];
      std::fill(w.begin(), w.end(), 0);
      std::fill(c.begin(), c.end(), 0);
      std::uint64_t last_row = 0;
      std::uint32_t last_class = 0;
      size_t e = i;
      for (; e < order.size() && gathered.codes[order[e]] == code; ++e) {
        const std::uint32_t p = order[e];
        for (unsigned y = 1; y < width_; ++y) {
          w[y] += gathered.weights[p * width_ + y];
          c[y] += gathered.cases[p * width_ + y];
        }
        if (e == i || gathered.last_row[p] > last_row) {
          last_row = gathered.last_row[p];
          last_class = gathered.last_class[p];
        }
      }
      append_run(merged, width_, code, last_row, last_class, w.data(), c.data());
      i = e;
    }
  }

  // 3. Owners scan; every rank combines the reports in range order.
  std::vector<std::vector<range_scan>> reports;
  owner_scans(level, jobs, mine, reports);
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
                               const std::vector<owned_runs>& mine, std::vector<std::vector<range_scan>>& reports) {
  const unsigned k = static_cast<unsigned>(comm_.size()), me = static_cast<unsigned>(comm_.rank());
  // What each owner holds of each job: runs, weights per class, first run.
  packer summary;
  for (size_t j = 0; j < jobs.size(); ++j) {
    const owned_runs& r = mine[j];
    summary.put(static_cast<std::uint32_t>(r.size()));
    if (r.size() == 0) continue;
    std::vector<std::int64_t> totals(width_, 0);
    for (size_t i = 0; i < r.size(); ++i)
      for (unsigned y = 1; y < width_; ++y) totals[y] += r.weights[i * width_ + y];
    summary.put(totals.data(), width_);
    const value_run first = as_run(r, 0, width_);
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
    if (mine[j].size() == 0) continue;
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
    for (size_t i = 0; i < mine[j].size(); ++i)
      if (!scan.push(as_run(mine[j], i, width_))) break;
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
