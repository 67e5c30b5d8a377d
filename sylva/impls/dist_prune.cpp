// The full pruning strategy (-c4.5) of a distributed build. It re-reads the
// cases at every node it visits, in an order where each step depends on the
// last, so it is not split into collectives: every rank gathers what it
// reads instead. Routing a case needs only the codes of the attributes the
// tree tests (a continuous one only up to which of the tree's thresholds it
// passes), and its class and weight; the ranks' cases are reduced to their
// distinct combinations of those, with the number of cases and whole weight
// of each, and every rank prunes the same tree over a table of them. With
// whole weights the float sums over a combination's weight equal the sums
// over its cases, so the pruned tree is the single-machine one; the case
// counts, which the pruning takes from the length of a case list, are set
// afterwards from the combinations' counts.

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "sylva/impls/dist_build.h"
#include "sylva/impls/dist_comm.h"
#include "sylva/impls/run_scan.h"
#include "sylva/impls/table.h"

namespace sylva::impls::dist {

namespace {

// The tested attributes, and each continuous one's threshold codes, sorted.
struct tests_of_tree {
  std::vector<unsigned> attributes;
  std::map<unsigned, std::vector<unsigned>> thresholds;
};

void collect_tests(const _decision_tree* tree, const table& t, tests_of_tree& out) {
  const _decision_node* n = tree->get_node();
  if (n->get_node_status() != decision_tree_types::SPLIT_NODE) return;
  const unsigned a = n->get_split_attribute_index();
  const column* c = t.get_attribute(a);
  if (std::find(out.attributes.begin(), out.attributes.end(), a) == out.attributes.end()) out.attributes.push_back(a);
  if (!c->is_discrete()) out.thresholds[a].push_back(n->get_threshold().index_in(*c));
  for (unsigned i = 0; i < tree->get_no_childs(); ++i) collect_tests(tree->get_child(i), t, out);
}

// A code reduced to the first threshold at or above it (beyond them all:
// one past the last), which every test of the tree routes alike.
unsigned reduced(const std::vector<unsigned>& thresholds, unsigned code) {
  const auto at = std::lower_bound(thresholds.begin(), thresholds.end(), code);
  return at == thresholds.end() ? thresholds.back() + 1 : *at;
}

// Per combination: cases and whole weight.
using combinations = std::map<std::vector<std::uint32_t>, std::pair<std::int64_t, std::int64_t>>;

// The key's attribute codes are in the order of `tests.attributes`, then
// the class code.
void route_counts(_decision_tree* tree, const table& t, const tests_of_tree& tests,
                  std::vector<const combinations::value_type*> members) {
  _decision_node* n = tree->get_node();
  std::int64_t count = 0;
  for (const auto* m : members) count += m->second.first;
  n->set_statistics(n->get_class_distribution(), static_cast<unsigned>(count), n->get_known_fract_over_father());
  if (n->get_node_status() != decision_tree_types::SPLIT_NODE) return;
  const unsigned a = n->get_split_attribute_index();
  const size_t slot = static_cast<size_t>(
      std::find(tests.attributes.begin(), tests.attributes.end(), a) - tests.attributes.begin());
  const column* c = t.get_attribute(a);
  const unsigned threshold = c->is_discrete() ? 0 : n->get_threshold().index_in(*c);
  std::vector<std::vector<const combinations::value_type*>> branches(tree->get_no_childs());
  for (const auto* m : members) {
    const unsigned code = m->first[slot];
    const unsigned b = c->is_discrete() ? code - 1 : (code <= threshold ? 0 : 1);
    if (b < branches.size()) branches[b].push_back(m);
  }
  for (unsigned i = 0; i < tree->get_no_childs(); ++i)
    route_counts(tree->get_child(i), t, tests, std::move(branches[i]));
}

}  // namespace

void prune_c45(communicator& comm, _decision_tree* root, const table& t, const w_sequence& cases, float cf) {
  tests_of_tree tests;
  collect_tests(root, t, tests);
  for (auto& [a, codes] : tests.thresholds) {
    std::sort(codes.begin(), codes.end());
    codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
  }
  const column* cls = t.get_class();
  const unsigned width = static_cast<unsigned>(tests.attributes.size()) + 1;
  combinations mine;
  std::vector<std::uint32_t> key(width);
  for (const w_pair& p : cases) {
    for (unsigned i = 0; i + 1 < width; ++i) {
      const unsigned a = tests.attributes[i];
      const unsigned code = t.get_attribute(a)->get_row_index(p.first);
      const auto th = tests.thresholds.find(a);
      key[i] = th == tests.thresholds.end() ? code : reduced(th->second, code);
    }
    key[width - 1] = cls->get_row_index(p.first);
    auto& slot = mine[key];
    ++slot.first;
    slot.second += std::llround(p.second);
  }
  packer out;
  for (const auto& [k, v] : mine) {
    out.put(k.data(), k.size());
    out.put(v.first);
    out.put(v.second);
  }
  combinations all;
  for (const std::vector<char>& block : comm.all_gather(out.bytes())) {
    unpacker in(block);
    while (!in.done()) {
      in.get(key.data(), width);
      auto& slot = all[key];
      slot.first += in.get<std::int64_t>();
      slot.second += in.get<std::int64_t>();
    }
  }

  // A table of the combinations over the same domains (codes unchanged);
  // columns the tree does not test hold their first code.
  auto reduced_table = std::make_unique<table>(t.get_name(), true);
  for (unsigned a = 0; a < t.get_no_attributes(); ++a) {
    const column* c = t.get_attribute(a);
    column* part = c->clone(true);
    const auto tested = std::find(tests.attributes.begin(), tests.attributes.end(), a);
    const bool stored = c->size() == t.get_no_rows() && t.get_no_rows() > 0;
    if (stored || tested != tests.attributes.end() || c->is_class()) {
      const size_t slot = static_cast<size_t>(tested - tests.attributes.begin());
      for (const auto& [k, v] : all) {
        if (c->is_class()) part->push_index(k[width - 1]);
        else if (tested != tests.attributes.end()) part->push_index(k[slot]);
        else part->push_index(c->get_range().first);
      }
    }
    reduced_table->push_back_filled(part);
  }
  std::string message;
  if (!reduced_table->set_consistency_for_tree(true, message)) throw std::runtime_error(message);
  w_sequence reduced_cases;
  std::uint32_t row = 0;
  for (const auto& [k, v] : all) reduced_cases.emplace_back(row++, whole_sums::add(0.0f, v.second));

  root->get_node()->lend_cases(&reduced_cases);
  root->prune_c45(reduced_table.get(), cf, _decision_tree::CFCoefficient(cf), true, false);
  root->get_node()->forget_cases();
  std::vector<const combinations::value_type*> members;
  for (const auto& m : all) members.push_back(&m);
  route_counts(root, t, tests, std::move(members));
}

}  // namespace sylva::impls::dist
