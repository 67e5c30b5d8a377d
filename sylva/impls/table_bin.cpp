// Binary records of domains, columns, partition descriptions and tables.
// There is no magic number: readers check every count and position against
// what the record can hold, so a foreign or truncated file ends in an error.

#include <memory>

#include "sylva/impls/table.h"
#include "tarn/inpout/binstream.h"

namespace sylva::impls {

using tarn::inpout::binary_format_error;

namespace {
const char create_error[] = "Failed to create object";
}

obinstream& operator<<(obinstream& out, const o_set* d) {
  if (!d) return out << static_cast<unsigned char>(0);
  out << static_cast<unsigned char>(1) << d->get_datatype() << d->admits_null() << d->contains_null()
      << std::string(d->get_null());
  return d->bin_out(out);
}

ibinstream& operator>>(ibinstream& in, o_set*& d) {
  d = nullptr;
  if (!in.read_presence()) return in;
  std::string word, token;
  bool admits = false, contains = false;
  in.read_text(word);
  in >> admits >> contains;
  in.read_text(token);
  std::unique_ptr<o_set> domain;
  try {
    domain.reset(o_set::NEW_O_SET(word, admits, token.c_str()));
  } catch (const std::exception&) {
    throw std::runtime_error(create_error);
  }
  domain->set_contains_null(contains);
  domain->bin_in(in);
  d = domain.release();
  return in;
}

obinstream& operator<<(obinstream& out, const column* c) {
  if (!c) return out << static_cast<unsigned char>(0);
  out << static_cast<unsigned char>(1) << c->get_o_set() << c->get_name() << c->get_type();
  return c->bin_out(out);
}

ibinstream& operator>>(ibinstream& in, column*& c) {
  c = nullptr;
  if (!in.read_presence()) return in;
  o_set* raw = nullptr;
  in >> raw;
  std::unique_ptr<o_set> domain(raw);
  std::string name, kind, error;
  in.read_text(name);
  in.read_text(kind);
  std::unique_ptr<column> col(column::NEW_COLUMN(domain.get(), name, kind, error));
  if (!col) throw std::runtime_error(create_error);
  domain.release();
  col->bin_in(in);
  c = col.release();
  return in;
}

obinstream& operator<<(obinstream& out, const column::partition_desc& pd) { return out << pd.value << pd.branches; }

ibinstream& operator>>(ibinstream& in, column::partition_desc& pd) {
  in.read_text(pd.value);
  return in >> pd.branches;
}

namespace {

void write_columns(obinstream& out, const std::vector<column*>& columns) {
  out << static_cast<unsigned int>(columns.size());
  for (const column* c : columns) out << c;
}

// Reads a column list into `columns`, which owns what it holds even when a
// later record fails.
void read_columns(ibinstream& in, std::vector<std::unique_ptr<column>>& columns) {
  const unsigned n = in.read_count();
  columns.clear();
  for (unsigned i = 0; i < n; ++i) {
    column* c = nullptr;
    in >> c;
    if (!c) throw binary_format_error("missing column");
    columns.emplace_back(c);
  }
}

}  // namespace

obinstream& operator<<(obinstream& out, const table* t) {
  if (!t) return out << static_cast<unsigned char>(0);
  out << static_cast<unsigned char>(1) << t->name_;
  // The column list is written twice, each time with its count.
  write_columns(out, t->columns_);
  out << t->class_index_;
  write_columns(out, t->columns_);
  out << t->no_rows_ << t->verbosity_ << t->for_tree_ << t->weights_index_ << t->loaded_columns_ << t->elapsed_;
  return out;
}

ibinstream& operator>>(ibinstream& in, table*& t) {
  t = nullptr;
  if (!in.read_presence()) return in;
  std::string name;
  in.read_text(name);
  std::vector<std::unique_ptr<column>> first, columns;
  read_columns(in, first);
  unsigned class_index = 0, rows = 0, verbosity = 0, weights_index = 0, loaded = 0;
  bool for_tree = false;
  double elapsed = 0;
  in >> class_index;
  read_columns(in, columns);
  in >> rows >> verbosity >> for_tree >> weights_index >> loaded >> elapsed;

  const unsigned n = static_cast<unsigned>(columns.size());
  if (first.size() != n || class_index > n || weights_index > n || loaded > n)
    throw binary_format_error("inconsistent table record");
  // Every column is checked, not only the first `loaded` ones: whatever the
  // record says, a column that holds rows must hold exactly the table's, or
  // a reader of the table would go past its end. A model's row-less copy of
  // its table keeps the row count with empty columns.
  for (const auto& c : columns) {
    const unsigned size = c->size();
    if (size != 0 && size != rows) throw binary_format_error("column length differs");
  }
  if (for_tree && (class_index == n || !columns[class_index]->is_class()))
    throw binary_format_error("class column missing");
  if (weights_index < n && !columns[weights_index]->is_weights()) throw binary_format_error("weights column missing");

  auto result = std::make_unique<table>(name, for_tree);
  for (auto& c : columns) result->columns_.push_back(c.release());
  result->class_index_ = class_index;
  result->no_rows_ = rows;
  result->verbosity_ = verbosity;
  result->weights_index_ = weights_index;
  result->loaded_columns_ = loaded;
  result->elapsed_ = elapsed;
  t = result.release();
  return in;
}

bool table::holds_all_rows() const {
  for (const column* c : columns_)
    if (!c->get_o_set()->is_dt_null() && c->size() != no_rows_) return false;
  return true;
}

}  // namespace sylva::impls
