// Growth on several cores: one emitter thread owns the tree and every
// decision; worker threads only compute. Near the root each attribute of a
// node is measured by its own task; deeper down, where nodes are small, a
// whole node is split by one task. Children are created in branch order and
// measures are combined in attribute order, so the tree does not depend on
// which worker ran what, or when.

#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <vector>

#include "ff/farm.h"
#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

namespace {

struct ff_task {
  _decision_tree* subtree;
  int kind;  // whole_node, one_attribute or carve
  unsigned attribute;
  std::uint64_t cost;  // the node's cases count
  int worker;
  std::exception_ptr failure;
};

// A whole node is split and its children carved by one worker; a node
// measured attribute-wise is decided by the emitter once its measures are
// in, and its children are carved by a worker.
constexpr int whole_node = 0, one_attribute = 1, carve = 2;

}  // namespace

// The farm's load balancer: every task goes to the worker the emitter chose.
class ff_balancer : public ff::ff_loadbalancer {
public:
  explicit ff_balancer(int max_workers) : ff_loadbalancer(max_workers) {}
  int chosen = 0;

protected:
  int selectworker() override { return chosen; }
};

class _ff_worker : public ff::ff_node {
public:
  _ff_worker(int number, const table* t, unsigned split_type, float min_obj, const options* opts)
      : number_(number), table_(t), split_type_(split_type), min_obj_(min_obj), options_(opts) {}

  void* svc(void* p) override {
    auto* task = static_cast<ff_task*>(p);
    _decision_node* n = task->subtree->get_node();
    try {
      // Attribute tasks of one node run side by side: each measures on its
      // own copy of the case list and writes only its own description.
      if (task->kind == one_attribute) {
        n->split_att(table_, min_obj_, options_, task->attribute, true);
      } else {
        if (task->kind == whole_node) n->split(table_, split_type_, min_obj_, options_);
        // The children's case lists are carved from the node's before it
        // lets them go; nothing else touches this subtree meanwhile.
        if (n->get_node_status() == decision_tree_types::SPLIT_NODE) task->subtree->grow_children(table_);
        n->disactivate();
      }
    } catch (...) {
      task->failure = std::current_exception();
    }
    return task;
  }

private:
  int number_;
  const table* table_;
  unsigned split_type_;
  float min_obj_;
  const options* options_;
};

class _ff_emitter : public ff::ff_node {
public:
  _ff_emitter(_decision_tree* root, const table* t, unsigned split_type, float min_obj, const options* opts,
              int nworkers, ff_balancer* lb, tarn::util::progress_scope* report)
      : root_(root), table_(t), split_type_(split_type), min_obj_(min_obj), options_(opts),
        attributes_(t->get_no_attributes()), rows_(t->get_no_rows()), load_(nworkers, 0), lb_(lb), report_(report) {}

  void* svc(void* p) override {
    try {
      if (!p) start();
      else returned(static_cast<ff_task*>(p));
    } catch (...) {
      if (!failure_) failure_ = std::current_exception();
    }
    return in_flight_ == 0 ? ff::EOS : ff::GO_ON;
  }

  std::exception_ptr failure() const { return failure_; }

private:
  void start() {
    open_cases_ = root_->get_node()->get_cases_weight();
    send_attribute_wise(root_);
  }

  // Sends one task to the least loaded worker (ties: the lowest index).
  void send(ff_task* task) {
    int w = 0;
    for (int i = 1; i < static_cast<int>(load_.size()); ++i)
      if (load_[i] < load_[w]) w = i;
    load_[w] += task->cost;
    task->worker = w;
    ++in_flight_;
    lb_->chosen = w;
    ff_send_out(task, static_cast<unsigned>(-1), 1000);
  }

  // Tasks are reused: a returned task goes back to the free list.
  ff_task* make_task(_decision_tree* s, int kind, unsigned attribute) {
    ff_task* t;
    if (free_.empty()) {
      owned_.push_back(std::make_unique<ff_task>());
      t = owned_.back().get();
    } else {
      t = free_.back();
      free_.pop_back();
    }
    // A task's cost is its node's case count, except that a continuous
    // attribute measured by sorting costs several counting passes: weighted
    // so, a node's few expensive measures are spread over the workers
    // instead of alternating onto the same one. Which worker runs a task
    // never changes the tree.
    std::uint64_t cost = s->get_node()->get_cases_count();
    if (kind == one_attribute) {
      const column* c = table_->get_attribute(attribute);
      const index_range& r = (*s->get_node()->get_ranges())[attribute];
      if (c->is_continuous() && !split_rules::by_value_counts(cost, r.second - r.first)) cost *= 8;
    }
    *t = ff_task{s, kind, attribute, cost, 0, nullptr};
    return t;
  }

  // A node whose every attribute is measured by its own task. A node that
  // is final, or has no attribute worth measuring, is decided at once.
  void send_attribute_wise(_decision_tree* s) {
    _decision_node* n = s->get_node();
    unsigned sent = 0;
    if (!n->split_pre(table_, split_type_, min_obj_)) {
      for (unsigned a = 0; a < attributes_; ++a) {
        if (!n->split_att_worth(a)) continue;
        send(make_task(s, one_attribute, a));
        ++sent;
      }
    }
    s->ff_sent = s->ff_outstanding = sent;
    if (sent == 0) {
      if (n->get_node_status() != decision_tree_types::LEAF_NODE) n->set_as_leaf();
      n->disactivate();
    }
  }

  void returned(ff_task* task) {
    --in_flight_;
    load_[task->worker] -= task->cost;
    free_.push_back(task);
    _decision_tree* s = task->subtree;
    _decision_node* n = s->get_node();
    if (task->failure && !failure_) failure_ = task->failure;
    if (task->kind == one_attribute && --s->ff_outstanding > 0) return;
    if (failure_) {
      // After a failure nothing new is started; what is in flight drains.
      n->disactivate();
      return;
    }
    if (task->kind == one_attribute) {
      if (n->split_post(table_) == decision_tree_types::SPLIT_NODE) return send(make_task(s, carve, 0));
      n->disactivate();
      return;
    }
    open_cases_ -= n->get_cases_weight();
    for (unsigned i = 0; i < s->get_no_childs(); ++i) open_cases_ += s->get_child(i)->get_node()->get_cases_weight();
    if (++decided_ % 64 == 0 || n->get_cases_count() >= 4096) report_->growing(decided_, in_flight_, open_cases_);
    // The node was measured attribute-wise when its children were carved
    // by a separate task. (The task itself may be reused by the sends below.)
    const bool attribute_wise = task->kind == carve;
    for (unsigned i = 0; i < s->get_no_childs(); ++i) {
      _decision_tree* c = s->get_child(i);
      if (split_rules::attribute_wise_child(attribute_wise, rows_, s->ff_sent, c->get_node()->get_cases_count()))
        send_attribute_wise(c);
      else
        send(make_task(c, whole_node, 0));
    }
  }

  _decision_tree* root_;
  const table* table_;
  unsigned split_type_;
  float min_obj_;
  const options* options_;
  unsigned in_flight_ = 0;
  unsigned attributes_;
  unsigned rows_;
  std::vector<std::uint64_t> load_;
  ff_balancer* lb_;
  tarn::util::progress_scope* report_;
  std::uint64_t decided_ = 0;
  double open_cases_ = 0;  // cases of the nodes still to split
  std::exception_ptr failure_;
  std::vector<std::unique_ptr<ff_task>> owned_;
  std::vector<ff_task*> free_;
};

void _decision_tree::build_ff(const table* t, unsigned int split_type, float min_obj, const options* opts,
                              int nworkers) {
  // Domains finish themselves on their first query; workers only read.
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) t->get_attribute(a)->get_o_set()->size_of_known();
  node_->activate(t);

  ff::ff_farm<ff_balancer, ff::ff_gatherer> farm(nworkers * 4096, 4096, 64);
  tarn::util::progress_scope report(progress_, tarn::util::progress::GROWING);
  _ff_emitter emitter(this, t, split_type, min_obj, opts, nworkers, farm.getlb(), &report);
  std::vector<std::unique_ptr<_ff_worker>> workers;
  std::vector<ff::ff_node*> stages;
  for (int i = 0; i < nworkers; ++i) {
    workers.push_back(std::make_unique<_ff_worker>(i, t, split_type, min_obj, opts));
    stages.push_back(workers.back().get());
  }
  farm.add_emitter(&emitter);
  farm.add_workers(stages);
  farm.wrap_around();
  if (farm.isfrozen() || farm.run_and_wait_end() < 0) {
    std::cout << "error running farm" << std::endl;
    std::exit(-1);
  }
  if (emitter.failure()) std::rethrow_exception(emitter.failure());
}

}  // namespace sylva::impls
