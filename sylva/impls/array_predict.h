#pragma once

// Classifying many cases held in arrays. The tree is copied once into a flat
// vector of nodes whose thresholds are already values of their column's type,
// so a row costs a few comparisons per level: no text is made or parsed per
// row. The descent, its float arithmetic and its tie rule are those of
// _decision_tree::descend, so every row gets the class distribution and the
// class that the model gives the same values written as text.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sylva::impls {

class decision_tree;
class table;

// The values of one attribute for a batch of rows; element r is at
// data[r * stride] (stride in elements).
struct attribute_input {
  enum kind_t { NONE, REAL, INTEGER, CODES };
  kind_t kind = NONE;
  // REAL: doubles, NaN unknown (a "float" column compares them narrowed to
  // float). INTEGER: int64_t values of an "integer" or "uinteger" column,
  // unknown where the `unknown` byte is not 0 (no mask: none is). CODES:
  // int32_t indices into the model's domain of a discrete column, 0 (or
  // less) unknown.
  const void* data = nullptr;
  std::size_t stride = 1;
  const std::uint8_t* unknown = nullptr;
};

class flat_tree {
public:
  // Throws when the model has no tree, or a threshold its column cannot read.
  explicit flat_tree(const decision_tree& model);

  // Slots of a class distribution: the model's class codes, 0 included.
  unsigned classes() const { return classes_; }
  unsigned nodes() const { return static_cast<unsigned>(nodes_.size()); }

  // Attributes some split tests: the only inputs predict reads.
  const std::vector<std::uint32_t>& tested() const { return tested_; }

  // For each of `rows` cases of weight 1, given per attribute of the model's
  // table (inputs[a] for attribute a; columns no split tests may be NONE):
  // its mixed class weights into dist[r * classes() ...] (unless dist is
  // null) and its class code into best[r] (ties go to the lower code).
  // `threads` > 1 splits the rows. Inputs of the wrong kind for their
  // column, and integers outside their column's range, throw
  // std::invalid_argument before any row is read.
  void predict(const std::vector<attribute_input>& inputs, std::size_t rows, float* dist, std::uint32_t* best,
               unsigned threads = 1) const;

private:
  enum kind_t : std::uint8_t { LEAF, EMPTY, DISCRETE, REAL, INTEGER, UINTEGER, UNKNOWN, OTHER };
  struct node {
    kind_t kind = EMPTY;
    std::uint32_t attribute = 0;  // a split's attribute; a leaf's class
    std::uint32_t first = 0;      // a split's first child; a leaf's distribution offset
    std::uint32_t count = 0;      // a split's children; a leaf's distribution length
    float weight = 0;             // cases weight
    union {
      float real;
      std::int32_t integer;
      std::uint32_t uinteger;
    } threshold{0.0f};
  };
  struct column_ref {
    const char* data;
    std::size_t stride;  // in bytes
    const std::uint8_t* unknown;
  };

  void set_test(node& flat, const table& t, std::uint32_t a, const std::string& threshold);
  void check_inputs(const std::vector<attribute_input>& inputs, std::size_t rows) const;
  void predict_range(const std::vector<column_ref>& cols, std::size_t begin, std::size_t end, float* dist,
                     std::uint32_t* best) const;
  unsigned branch(const node& n, const column_ref& c, std::size_t row) const;
  void descend(std::uint32_t at, const std::vector<column_ref>& cols, std::size_t row, float w, float* dist) const;

  std::vector<node> nodes_;  // the root first; the children of a split side by side
  std::vector<float> dists_;
  std::vector<kind_t> attribute_kinds_;  // what each attribute's splits read
  std::vector<std::string> names_;
  std::vector<std::uint32_t> tested_;    // attributes some split reads
  unsigned classes_ = 0;
};

}  // namespace sylva::impls
