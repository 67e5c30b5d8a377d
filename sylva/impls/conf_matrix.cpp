#include "sylva/impls/conf_matrix.h"

#include <ostream>
#include <stdexcept>
#include <string>

#include "sylva/impls/table.h"
#include "tarn/util/string_util.h"

namespace sylva::impls {

conf_matrix::conf_matrix(const table* t) {
  if (!t) throw std::runtime_error("Table pointer was NULL");
  const column* cls = t->get_class();
  const unsigned n = cls ? cls->get_distinct() : 0;
  matrix_.assign(n, std::vector<float>(n, 0.0f));
  for (unsigned i = 0; i < n; ++i) names_.push_back(cls->get_value(i));
}

conf_matrix::conf_matrix(std::vector<std::vector<float>> matrix, std::vector<std::string> names)
    : matrix_(std::move(matrix)), names_(std::move(names)) {}

float conf_matrix::cases() const {
  float total = 0;
  for (const auto& row : matrix_)
    for (float x : row) total += x;
  return total;
}

float conf_matrix::mis_perc() const {
  float total = 0, wrong = 0;
  for (size_t p = 0; p < matrix_.size(); ++p) {
    for (size_t a = 0; a < matrix_[p].size(); ++a) {
      total += matrix_[p][a];
      if (a != p) wrong += matrix_[p][a];
    }
  }
  return wrong / total;
}

void conf_matrix::toTEXT(std::ostream& os, unsigned indent) const {
  const std::string pad(indent, ' ');
  os << pad;
  for (const std::string& name : names_) os << name << '\t';
  os << "actual/predicted" << std::endl;
  for (size_t p = 0; p < matrix_.size(); ++p) {
    os << pad;
    for (float x : matrix_[p]) os << x << '\t';
    os << names_[p] << std::endl;
  }
}

void conf_matrix::toXML(std::ostream& os, const std::string& name) const {
  using tarn::util::string_util::toXML;
  float total = 0, wrong = 0;
  for (size_t p = 0; p < matrix_.size(); ++p) {
    for (size_t a = 0; a < matrix_[p].size(); ++a) {
      total += matrix_[p][a];
      if (a != p) wrong += matrix_[p][a];
    }
  }
  const float fraction = total != 0 ? wrong / total : 0.0f;
  const size_t n = matrix_.size(), k = n > 0 ? n - 1 : 0;
  os << "<X-ConfusionMatrix" << name << " x-incorrectlyInst = \"" << total * fraction
     << "\" x-incorrectlyInstPerc = \"" << fraction * 100 << "%\" x-totalInst = \"" << total << "\">" << std::endl;
  os << "<Array n=\"" << k << "\" type=\"string\">" << std::endl;
  for (size_t c = 1; c < n; ++c) os << '"' << toXML(names_[c]) << '"' << (c + 1 < n ? " " : "\n");
  os << "</Array>";
  os << "<Matrix>";
  for (size_t r = 1; r < n; ++r) {
    os << "<Array n=\"" << k << "\" type=\"real\">" << std::endl;
    for (size_t c = 1; c < n; ++c) os << matrix_[c][r] << (c + 1 < n ? " " : "\n");
    os << "</Array>";
  }
  os << "</Matrix>";
  os << "</X-ConfusionMatrix" << name << ">" << std::endl;
}

}  // namespace sylva::impls
