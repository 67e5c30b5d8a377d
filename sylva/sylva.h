#pragma once

// Public handles of the Sylva library: a table loaded from data sources, a
// decision tree built on it, confusion matrices and data-source descriptors.
// Each handle holds one pointer to its implementation; errors pass through
// as std::runtime_error with the complete message.

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace tarn::util {
class progress;
}

namespace sylva {

namespace impls {
class table;
class decision_tree;
class conf_matrix;
}  // namespace impls

std::string get_version();    // "1.2.5"
int get_build();              // 10205
std::string get_copyright();  // one-line banner

// A data-source descriptor: "FILE#" path "#" separator, or "JDBC" and six
// fields for an external data provider.
class datasource {
public:
  explicit datasource(const std::string& descriptor) : descriptor_(descriptor) {}
  ~datasource() = default;
  const std::string& get_descriptor() const { return descriptor_; }

private:
  std::string descriptor_;
};

class table {
public:
  // A weighted subset of rows: (row, weight) pairs.
  class subset {
  public:
    subset();                  // a new empty sequence, owned
    explicit subset(void* s);  // wraps an existing sequence, not owned
    ~subset();
    subset(const subset&) = delete;
    subset& operator=(const subset&) = delete;

    void reserve(unsigned n);
    void resize(unsigned n);
    unsigned size() const;
    void push_back(unsigned row, float weight);
    void set(unsigned i, unsigned row, float weight);
    std::pair<unsigned, float> get(unsigned i) const;
    void* impl() const { return seq_; }

  private:
    void* seq_;
    bool owns_;
  };

  explicit table(const std::string& name);
  ~table();
  table(const table&) = delete;
  table& operator=(const table&) = delete;

  void load_meta_data(const datasource& source);
  // Loads on `threads` threads; 0 or negative: all online processors.
  void load_data(const datasource& source, const std::string& unknown, int threads = 0);
  void set_verbosity(unsigned v);
  void set_log(std::ostream* log);
  // Loading reports rows and bytes read to `p` (tarn/util/progress.h; not
  // owned; null: none).
  void set_progress(tarn::util::progress* p);
  unsigned get_no_rows() const;
  unsigned get_no_columns() const;
  std::string get_name() const;
  double get_elapsed() const;
  std::string get_class(unsigned row) const;
  float get_weight(unsigned row) const;

  subset* get_wsubset_all() const;
  subset* get_wsubset_first_n(unsigned n) const;
  subset* get_wsubset_random(unsigned n) const;
  subset* get_wsubset_difference(subset* other) const;

  void toXML_data_dictionary(std::ostream& os) const;
  void toXML_mining_schema(std::ostream& os) const;
  void toBinary(const std::string& file) const;
  static table* fromBinary(const std::string& file);

  impls::table* impl() const { return impl_; }

private:
  explicit table(impls::table* impl) : impl_(impl) {}
  impls::table* impl_;
};

class conf_matrix {
public:
  explicit conf_matrix(const table* t);      // empty, for the table's classes
  explicit conf_matrix(const conf_matrix* m);  // a copy
  explicit conf_matrix(impls::conf_matrix* m) : impl_(m) {}  // takes ownership
  ~conf_matrix();
  conf_matrix(const conf_matrix&) = delete;
  conf_matrix& operator=(const conf_matrix&) = delete;

  conf_matrix* clone() const;
  unsigned size() const;
  float get_element(unsigned i, unsigned j) const;
  float cases() const;
  float mis_perc() const;
  double get_elapsed() const;
  void toTEXT(std::ostream& os, unsigned indent) const;
  void toXML(std::ostream& os) const;
  const impls::conf_matrix* impl() const { return impl_; }

private:
  impls::conf_matrix* impl_;
};

class dtree {
public:
  enum PruningStrategy { NO_PRUNING = 0, C45_PRUNING = 1, ERROR_BASED_PRUNING = 2 };
  enum SplitType { GAIN = 0, GAIN_RATIO = 1 };
  enum Options { PENALTY_ON_CASES = 0, PENALTY_ON_WEIGHTS = 1 };

  explicit dtree(const std::string& name);
  ~dtree();
  dtree(const dtree&) = delete;
  dtree& operator=(const dtree&) = delete;

  bool set_conf_level(float cf);
  bool set_min_obj(float m);
  bool set_split_type(SplitType st);
  bool set_option(Options o);
  bool set_pruning_strategy(PruningStrategy ps);
  // Growth reports nodes grown, open nodes and cases still to split to `p`
  // (tarn/util/progress.h; not owned; null: none).
  void set_progress(tarn::util::progress* p);

  // Grows and prunes the tree on the subset's rows (all rows when null).
  void build(table* t, table::subset* s, bool evaluate, int cores);
  unsigned training_n_rows() const;
  unsigned depth() const;
  unsigned size() const;
  double get_elapsed() const;

  std::pair<std::string, float> predict(table* t, unsigned row, float weight) const;
  std::pair<std::string, float> predict(const std::vector<std::string>& values, float weight) const;
  conf_matrix* predict(table* t, table::subset* s) const;
  conf_matrix* predict(const datasource& source) const;
  // Scores every row of the source into `out`; returns the seconds taken.
  double evaluate(const datasource& source, std::ostream& out, char separator) const;
  conf_matrix* get_prediction() const;

  void toTEXT(std::ostream& os) const;
  void toXML(std::ostream& os, const conf_matrix* test) const;
  void toDOT(std::ostream& os) const;
  dtree* clone() const;
  void toBinary(const std::string& file) const;
  static dtree* fromBinary(const std::string& file);

  const impls::decision_tree* impl() const { return impl_; }

private:
  explicit dtree(impls::decision_tree* impl) : impl_(impl) {}
  impls::decision_tree* impl_;
};

}  // namespace sylva
