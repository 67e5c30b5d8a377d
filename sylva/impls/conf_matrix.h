#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace sylva::impls {

class table;

// Confusion matrix of case weights over class indices (index 0 is the
// unknown class): cell (row p, column a) holds the weight of cases of actual
// class a predicted as p.
class conf_matrix {
public:
  explicit conf_matrix(const table* t);
  conf_matrix(std::vector<std::vector<float>> matrix, std::vector<std::string> names);
  conf_matrix* clone() const { return new conf_matrix(*this); }

  unsigned size() const { return static_cast<unsigned>(matrix_.size()); }
  // The cell in row j, column i.
  float get_element(unsigned i, unsigned j) const { return matrix_[j][i]; }
  void add(unsigned predicted, unsigned actual, float w) { matrix_[predicted][actual] += w; }
  float cases() const;
  // Misclassified weight over total weight: a fraction (0/0 when empty).
  float mis_perc() const;
  double get_elapsed() const { return elapsed_; }
  void set_elapsed(double e) { elapsed_ = e; }
  const std::vector<std::vector<float>>& get_matrix() const { return matrix_; }
  const std::vector<std::string>& get_names() const { return names_; }

  void toTEXT(std::ostream& os, unsigned indent) const;
  void toXML(std::ostream& os, const std::string& name) const;

private:
  std::vector<std::vector<float>> matrix_;
  std::vector<std::string> names_;
  double elapsed_ = 0.0;
};

}  // namespace sylva::impls
