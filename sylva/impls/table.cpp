#include "sylva/impls/table.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <stdexcept>

#include "sylva/impls/load_passes.h"
#include "tarn/inpout/stream.h"

namespace sylva::impls {

using tarn::inpout::stream;

using loading::bad_row_error;

table::table(const std::string& name, bool for_tree) : name_(name), for_tree_(for_tree) {}

table::~table() {
  for (column* c : columns_) delete c;
}

// ---------------------------------------------------------------- metadata

void table::load_meta_data(stream* s, bool close) {
  try {
    if (!s) throw std::runtime_error("no data provider detected.");
    unsigned line = 0;
    while (s->read_line()) {
      ++line;
      if (tarn::util::count_fields(s->get_line(), s->get_delim()) < 3) throw bad_row_error(line, s->get_line());
      const std::string name = s->next_field();
      const std::string datatype = s->next_field();
      const std::string coltype = s->next_field();
      push_back(name, datatype, coltype);
    }
    s->check_complete();
    if (close) s->close();
  } catch (const std::runtime_error& e) {
    throw std::runtime_error(std::string("Reading metadata: ") + e.what());
  }
}

void table::push_back(const std::string& name, const std::string& datatype, const std::string& coltype) {
  std::unique_ptr<o_set> domain(o_set::NEW_O_SET(datatype, coltype != "weights", "?"));
  std::string error;
  column* c = column::NEW_COLUMN(domain.get(), name, coltype, error);
  if (!c) throw std::runtime_error(error);
  domain.release();
  columns_.push_back(c);
}

o_set* table::make_column_o_set(unsigned i, const char* unknown) const {
  if (i >= columns_.size()) return nullptr;
  const o_set* d = columns_[i]->get_o_set();
  return o_set::NEW_O_SET(d->get_datatype(), d->admits_null(), unknown);
}

column* table::make_column(unsigned i, o_set* domain, std::string* error) const {
  std::string message;
  column* c = column::NEW_COLUMN(domain, columns_[i]->get_name(), columns_[i]->get_type(), message);
  if (!c && error) *error = message;
  return c;
}

bool table::consistency_check(unsigned n, std::string& message) {
  if (!for_tree_) {
    class_index_ = weights_index_ = n;
    return true;
  }
  unsigned classes = 0, weights = 0, first_class = n, first_weights = n;
  for (unsigned i = 0; i < n && i < columns_.size(); ++i) {
    if (columns_[i]->is_class() && classes++ == 0) first_class = i;
    if (columns_[i]->is_weights() && weights++ == 0) first_weights = i;
  }
  if (classes != 1) return message = "there must be only one class column", false;
  if (weights > 1) return message = "there must be at most one weights column", false;
  class_index_ = first_class;
  weights_index_ = first_weights;
  return true;
}

bool table::set_consistency_for_tree(bool flag, std::string& message) {
  const bool old = for_tree_;
  for_tree_ = flag;
  const unsigned n = static_cast<unsigned>(columns_.size());
  if (consistency_check(n, message)) return true;
  for_tree_ = old;
  std::string ignored;
  consistency_check(n, ignored);
  return false;
}

// -------------------------------------------------------------------- data
// load_data is in table_load.cpp.

void table::push_back_filled(column* c) {
  std::unique_ptr<column> owned(c);
  if (loaded_columns_ != columns_.size())
    throw std::runtime_error("[table::push_back_filled] declared columns are not loaded yet");
  auto has_storage = [](const column* x) { return !(x->is_ignore() && x->get_o_set()->is_dt_null()); };
  const bool rows_known = std::any_of(columns_.begin(), columns_.end(), has_storage);
  if (has_storage(c) && rows_known && c->size() != no_rows_)
    throw std::runtime_error("[table::push_back_filled] column '" + c->get_name() + "' holds " +
                             std::to_string(c->size()) + " rows, the table " + std::to_string(no_rows_));
  columns_.push_back(owned.release());
  if (has_storage(c)) no_rows_ = c->size();
  loaded_columns_ = static_cast<unsigned>(columns_.size());
  std::string message;
  consistency_check(loaded_columns_, message);
}

void table::describe_rows(unsigned n) {
  for (const column* c : columns_)
    if (c->size() != 0) throw std::runtime_error("[table::describe_rows] the table holds rows");
  no_rows_ = n;
}

bool table::load_row(stream& s, std::vector<std::string>& values, unsigned row) const {
  if (!s.read_line()) {
    s.check_complete();
    return false;
  }
  const unsigned k = static_cast<unsigned>(columns_.size());
  if (tarn::util::count_fields(s.get_line(), s.get_delim()) != k) throw bad_row_error(row, s.get_line());
  values.resize(k);
  for (unsigned j = 0; j < k; ++j) values[j] = s.next_field();
  return true;
}

// -------------------------------------------------------------------- copy

table* table::clone(int mask) const {
  auto* t = new table(name_, for_tree_);
  t->log_ = log_;
  t->verbosity_ = verbosity_;
  t->no_rows_ = no_rows_;
  t->loaded_columns_ = loaded_columns_;
  t->class_index_ = class_index_;
  t->weights_index_ = weights_index_;
  t->elapsed_ = elapsed_;
  t->columns_.reserve(columns_.size());
  const bool structure_only = (mask & 32) != 0;
  for (const column* c : columns_) {
    const bool keep = (c->is_class() && (mask & 1)) || (c->is_discrete() && (mask & 2)) ||
                      (c->is_continuous() && (mask & 4)) || (c->is_weights() && (mask & 8));
    if (keep) {
      t->columns_.push_back(c->clone(structure_only));
      continue;
    }
    // A placeholder keeps the column's place, name, kind and value type.
    const o_set* d = c->get_o_set();
    std::unique_ptr<o_set> fresh(o_set::NEW_O_SET(d->get_datatype(), d->admits_null(), d->get_null()));
    std::string error;
    column* placeholder = column::NEW_COLUMN(fresh.get(), c->get_name(), c->get_type(), error);
    if (!placeholder) {
      delete t;
      throw std::runtime_error(error);
    }
    fresh.release();
    t->columns_.push_back(placeholder);
  }
  return t;
}

}  // namespace sylva::impls
