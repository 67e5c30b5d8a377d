#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "sylva/impls/column.h"
#include "tarn/util/nocopy.h"
#include "tarn/util/progress.h"

namespace tarn::inpout {
class stream;
}

namespace sylva::impls {

// A data set held column-wise: every column stores each row's index into the
// column's value domain. Declared from a metadata source (one line per
// column: name, data type, column type), filled from a data source in two
// passes, then read-only for the tree code.
class table : private tarn::util::nocopy {
public:
  table(const std::string& name, bool for_tree);
  ~table();

  // How data are loaded: on `threads` threads (0 or negative: as many as
  // the machine has processors online), which share the text out in pieces
  // of about `chunk_bytes` bytes. The table loaded is the same whatever the
  // settings.
  struct load_options {
    int threads = 0;
    std::size_t chunk_bytes = std::size_t{1} << 18;
    // Told the rows and bytes read while loading (not owned; null: none).
    // The second pass keeps the row count of the first and adds its bytes.
    tarn::util::progress* progress = nullptr;
  };

  void load_meta_data(tarn::inpout::stream* s, bool close);
  void load_data(tarn::inpout::stream* s, const std::string& unknown, bool close, int threads = 0);
  void load_data(tarn::inpout::stream* s, const std::string& unknown, bool close, const load_options& options);
  void push_back(const std::string& name, const std::string& datatype, const std::string& coltype);
  o_set* make_column_o_set(unsigned i, const char* unknown) const;
  // Null when the column cannot be built; the reason goes to `error` if given.
  column* make_column(unsigned i, o_set* domain, std::string* error = nullptr) const;
  bool consistency_check(unsigned n, std::string& message);
  bool set_consistency_for_tree(bool flag, std::string& message);
  table* clone(int mask) const;

  // The next row of a stream as one text per column; false at the end.
  // Rows are numbered from 1 in `row` for the bad-row message.
  bool load_row(tarn::inpout::stream& s, std::vector<std::string>& values, unsigned row) const;

  column* get_attribute(unsigned i) const { return columns_[i]; }
  column* get_class() const { return class_index_ < columns_.size() ? columns_[class_index_] : nullptr; }
  column* get_weights() const { return weights_index_ < columns_.size() ? columns_[weights_index_] : nullptr; }
  unsigned get_class_index() const { return class_index_; }
  unsigned get_weights_index() const { return weights_index_; }
  unsigned get_no_rows() const { return no_rows_; }
  unsigned get_no_attributes() const { return static_cast<unsigned>(columns_.size()); }
  const std::string& get_name() const { return name_; }
  double get_elapsed() const { return elapsed_; }
  void set_log(std::ostream* log) { log_ = log; }
  // Reports the progress of load_data to `p` (not owned; null: none), for
  // loads that give no load_options of their own.
  void set_progress(tarn::util::progress* p) { progress_ = p; }
  std::ostream* get_log() const { return log_; }
  void set_verbosity(unsigned v) { verbosity_ = v; }
  unsigned get_verbosity() const { return verbosity_; }
  bool is_for_tree() const { return for_tree_; }
  // Every loaded column with values holds one per row (a training table).
  bool holds_all_rows() const;

  // Weighted subsets. Rows ascend and appear once, except in a repeated
  // sample; weights come from the weights column when there is one.
  w_sequence* get_wsubset_all() const;
  w_sequence* get_wsubset_first_n(unsigned n) const;
  w_sequence* get_wsubset_random(unsigned n) const;
  w_sequence* get_wsubset_random_repeated(unsigned n) const;
  w_sequence* get_wsubset_difference(w_sequence* other) const;
  w_sequence* get_wsubset_balanced() const;
  void update_weights(w_sequence* s) const;
  // The weight update_weights gives a row, by the weights column's code of
  // the row (every code of its domain, 0 included); empty without a weights
  // column.
  std::vector<float> weights_by_code() const;

  void toXML_data_dictionary(std::ostream& os) const;
  void toXML_mining_schema(std::ostream& os) const;

  // Appends a column that already holds one index per row, for tables
  // built from other sources than text (in-memory arrays). Every column
  // appended so must hold the same number of rows, which becomes the
  // table's; the class and weights positions are checked as a data load
  // checks them.
  void push_back_filled(column* c);
  // For a row-less copy (clone with bit 32) that describes a table whose
  // rows are spread over several processes: the number of rows of them all.
  void describe_rows(unsigned n);

  friend obinstream& operator<<(obinstream& out, const table* t);
  friend ibinstream& operator>>(ibinstream& in, table*& t);

private:

  std::string name_;
  std::ostream* log_ = nullptr;
  tarn::util::progress* progress_ = nullptr;
  unsigned verbosity_ = 0;
  std::vector<column*> columns_;
  unsigned no_rows_ = 0;
  unsigned loaded_columns_ = 0;
  unsigned class_index_ = 0;
  unsigned weights_index_ = 0;
  bool for_tree_;
  double elapsed_ = 0.0;
};

obinstream& operator<<(obinstream& out, const o_set* d);
ibinstream& operator>>(ibinstream& in, o_set*& d);
obinstream& operator<<(obinstream& out, const column* c);
ibinstream& operator>>(ibinstream& in, column*& c);
obinstream& operator<<(obinstream& out, const column::partition_desc& pd);
ibinstream& operator>>(ibinstream& in, column::partition_desc& pd);

}  // namespace sylva::impls
