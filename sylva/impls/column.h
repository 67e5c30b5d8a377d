#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "sylva/impls/o_set.h"
#include "sylva/impls/split_rules.h"
#include "tarn/adt/bitmap.h"
#include "tarn/util/nocopy.h"
#include "tarn/util/pair.h"

namespace sylva::impls {

// A weighted case list: (row number, weight) pairs, the unit of work of
// building and testing.
using w_pair = tarn::util::pair<unsigned int, float>;
using w_sequence = std::vector<w_pair>;
// A half-open range of value indices [first, second).
using index_range = tarn::util::pair<unsigned int, unsigned int>;

// Induction options shared by every split measure: when the flag is set the
// threshold penalty of a continuous split is divided by the number of cases
// instead of their total weight.
struct options {
  bool penalty_on_cases = false;
};

// One column of a table: the domain index of every row's value (0 unknown,
// 1..n known values in ascending order), in the narrowest width the domain
// allows. This base class stores nothing; it serves "ignore" columns of
// datatype "null".
class column : private tarn::util::nocopy {
public:
  enum _type { DISCRETE = 0, CLASS = 1, CONTINUOUS = 2, WEIGHTS = 3, IGNORE = 4 };

  // What a split leaves in a node: the cut text of a continuous split and
  // the number of branches. A continuous split made on a table also keeps
  // its threshold as codes of the domain it was made in, so that carving
  // and predicting rows of that table compare codes and never parse the
  // text again: `code` is the index of the text's value (0 when the text is
  // not one of the values), `below` the number of values not above it.
  struct partition_desc {
    std::string value;
    unsigned int branches = 0;
    const o_set* domain = nullptr;
    unsigned int code = 0, below = 0;
    void reset() {
      value.clear();
      branches = 0;
      domain = nullptr;
      code = below = 0;
    }
    // The index carving uses for the threshold in `d`.
    unsigned index_in(const column& c) const;
  };

  // Outcome of a split measure for one attribute of one node.
  struct splitting_desc {
    unsigned int branches = 0;
    unsigned int lower = 0;  // code of the largest value going left
    unsigned int upper = 0;  // code of the smallest value going right
    const column* col = nullptr;
    float gain = 0;
    float split_info = 0;

    void fail() {
      gain = split_rules::no_split_gain;
      split_info = 0;
    }
    void set_partition_desc(partition_desc& pd) const;
  };

  column(_type kind, const std::string& name, o_set* domain);
  virtual ~column();

  virtual column* clone(bool structure_only) const;
  virtual void reserve(unsigned n);
  virtual unsigned size() const;
  virtual void push_back(const char* text);
  virtual unsigned get_row_index(unsigned row) const;
  virtual bool less_than(unsigned row_a, unsigned row_b) const;
  virtual void toXML(std::ostream& os) const;
  // The rows of [begin, end) that go to `branch`, unknown rows with their
  // weight scaled by the branch's known ratio.
  virtual w_sequence* partition(const w_pair* begin, const w_pair* end, unsigned branch, float total,
                                float& ratio, index_range& range, const partition_desc& pd) const;
  virtual void quality_measure(const column* class_col, float total, w_sequence* cases, index_range& range,
                               float min_obj, const options* opts, splitting_desc& out, bool copy) const;
  // Leaves `cases` in the order quality_measure (without copy) leaves them,
  // without measuring: what a node's measures do to its list.
  virtual void sort_as_measure(const column* class_col, w_sequence* cases, const index_range& range) const;
  virtual obinstream& bin_out(obinstream& out) const;
  virtual ibinstream& bin_in(ibinstream& in);
  // Appends a row by its domain index, already looked up.
  virtual void push_index(unsigned index);

  // The lists of branches 1..count at once: the same lists, ratios and
  // ranges as partition() gives branch by branch, from one counting pass
  // and one distributing pass over the father's cases.
  struct branch_lists {
    std::vector<w_sequence*> cases;  // owned by the receiver
    std::vector<float> ratios;
    std::vector<index_range> ranges;
  };
  virtual void partition_all(const w_pair* begin, const w_pair* end, unsigned count, float total,
                             const partition_desc& pd, branch_lists& out) const;

  _type get_kind() const { return kind_; }
  std::string get_type() const { return type_word(kind_); }
  bool is_discrete() const { return kind_ == DISCRETE; }
  bool is_class() const { return kind_ == CLASS; }
  bool is_continuous() const { return kind_ == CONTINUOUS; }
  bool is_weights() const { return kind_ == WEIGHTS; }
  bool is_ignore() const { return kind_ == IGNORE; }
  const std::string& get_name() const { return name_; }
  o_set* get_o_set() const { return domain_; }
  unsigned get_distinct() const { return domain_->size_of_known() + 1; }
  index_range get_range() const;
  std::string get_value(unsigned i) const { return domain_->get_value(i); }
  std::string get_row_value(unsigned row) const { return domain_->get_value(get_row_index(row)); }
  unsigned get_index(const char* text) const;
  std::string find_threshold(unsigned i, unsigned j) const;

  // Whether a column of this kind word may hold unknown values. Only the
  // word "weights" is refused; class columns are guarded by NEW_COLUMN.
  static bool admits_null(const std::string& word);
  static std::string type_word(int kind);
  // -1 for an unknown word.
  static int kind_of(const std::string& word);
  // A new column for a filled domain, or null with the reason in `error`.
  static column* NEW_COLUMN(o_set* domain, const std::string& name, const std::string& word, std::string& error);

protected:
  _type kind_;
  std::string name_;
  o_set* domain_;
};

// Indices stored in T = unsigned char, unsigned short, unsigned int or
// unsigned long long.
template <class T>
class column_typed : public column {
public:
  using column::column;

  column* clone(bool structure_only) const override;
  void reserve(unsigned n) override { data_.reserve(n); }
  unsigned size() const override { return static_cast<unsigned>(data_.size()); }
  void push_back(const char* text) override;
  unsigned get_row_index(unsigned row) const override { return static_cast<unsigned>(data_[row]); }
  bool less_than(unsigned a, unsigned b) const override { return data_[a] < data_[b]; }
  w_sequence* partition(const w_pair* begin, const w_pair* end, unsigned branch, float total, float& ratio,
                        index_range& range, const partition_desc& pd) const override;
  void partition_all(const w_pair* begin, const w_pair* end, unsigned count, float total, const partition_desc& pd,
                     branch_lists& out) const override;
  void quality_measure(const column* class_col, float total, w_sequence* cases, index_range& range,
                       float min_obj, const options* opts, splitting_desc& out, bool copy) const override;
  void sort_as_measure(const column* class_col, w_sequence* cases, const index_range& range) const override;
  obinstream& bin_out(obinstream& out) const override;
  ibinstream& bin_in(ibinstream& in) override;
  void push_index(unsigned index) override { data_.push_back(static_cast<T>(index)); }
  // Replaces the rows by indices filled elsewhere (loaders that fill rows in
  // parallel).
  void assign(std::vector<T> rows) { data_ = std::move(rows); }

  const T* data() const { return data_.data(); }

private:
  std::vector<T> data_;
};

// A discrete column with at most two known values and no unknown: one bit
// per row holding index - 1.
class column_bool : public column {
public:
  using column::column;

  column* clone(bool structure_only) const override;
  void reserve(unsigned n) override { bits_.reserve(n); }
  unsigned size() const override { return bits_.size(); }
  void push_back(const char* text) override;
  unsigned get_row_index(unsigned row) const override { return bits_.get(row) ? 2u : 1u; }
  bool less_than(unsigned a, unsigned b) const override { return bits_.get(a) < bits_.get(b); }
  w_sequence* partition(const w_pair* begin, const w_pair* end, unsigned branch, float total, float& ratio,
                        index_range& range, const partition_desc& pd) const override;
  void partition_all(const w_pair* begin, const w_pair* end, unsigned count, float total, const partition_desc& pd,
                     branch_lists& out) const override;
  void quality_measure(const column* class_col, float total, w_sequence* cases, index_range& range,
                       float min_obj, const options* opts, splitting_desc& out, bool copy) const override;
  obinstream& bin_out(obinstream& out) const override;
  ibinstream& bin_in(ibinstream& in) override;
  void push_index(unsigned index) override { bits_.push_back(index == 2); }
  // Replaces the rows by bits filled elsewhere (index - 1 per row).
  void assign(tarn::adt::bitmap rows) { bits_ = std::move(rows); }

  const tarn::adt::bitmap& bits() const { return bits_; }

private:
  tarn::adt::bitmap bits_;
};

extern template class column_typed<unsigned char>;
extern template class column_typed<unsigned short>;
extern template class column_typed<unsigned int>;
extern template class column_typed<unsigned long long>;

// Code readers for the hot loops: one indexed load per row, no virtual call.
template <class T>
struct array_codes {
  const T* data;
  unsigned operator[](unsigned row) const { return static_cast<unsigned>(data[row]); }
};

struct bit_codes {
  const std::uint32_t* words;
  unsigned operator[](unsigned row) const { return ((words[row >> 5] >> (row & 31)) & 1u) + 1u; }
};

// Calls f with the code reader of a column's storage; false for a column
// without storage.
template <class F>
bool visit_codes(const column& c, F&& f) {
  if (auto* p = dynamic_cast<const column_typed<unsigned char>*>(&c)) return f(array_codes<unsigned char>{p->data()}), true;
  if (auto* p = dynamic_cast<const column_typed<unsigned short>*>(&c)) return f(array_codes<unsigned short>{p->data()}), true;
  if (auto* p = dynamic_cast<const column_typed<unsigned int>*>(&c)) return f(array_codes<unsigned int>{p->data()}), true;
  if (auto* p = dynamic_cast<const column_typed<unsigned long long>*>(&c))
    return f(array_codes<unsigned long long>{p->data()}), true;
  if (auto* p = dynamic_cast<const column_bool*>(&c)) return f(bit_codes{p->bits().data()}), true;
  return false;
}

}  // namespace sylva::impls
