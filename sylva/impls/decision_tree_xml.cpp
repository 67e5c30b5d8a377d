// The model as a PMML 2.0 TreeModel document. Names and labels go through
// the XML escaping; numbers and thresholds are written as they are.

#include <iomanip>
#include <ostream>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/identity.h"
#include "sylva/impls/table.h"
#include "tarn/util/string_util.h"

namespace sylva::impls {

using tarn::util::string_util::toXML;

void decision_tree::toXML(std::ostream& os, const conf_matrix* test) const {
  os << "<PMML version=\"2.0\">" << std::endl;
  os << "<Header copyright=\"" << identity::copyright << "\">" << std::endl;
  os << "<Application name=\"" << identity::product << "\" version=\"" << identity::version << "\" />" << std::endl;
  os << "</Header>" << std::endl;
  if (table_) table_->toXML_data_dictionary(os);
  os << "<TreeModel modelName=\"" << tarn::util::string_util::toXML(name_)
     << "\" functionName=\"classification\" algorithmName=\"" << identity::product << " " << identity::version
     << "\">" << std::endl;
  if (table_) table_->toXML_mining_schema(os);
  if (tree_) tree_->toXML(table_, os);
  os << "<Extension>" << std::endl;
  if (matrix_) matrix_->toXML(os, "Training");
  if (test) test->toXML(os, "Test");
  os << "</Extension>" << std::endl;
  os << "</TreeModel>" << std::endl;
  os << "</PMML>" << std::endl;
}

void _decision_tree::toXML(const table* t, std::ostream& os) const {
  if (!node_) return;
  os << "<Node score=\"";
  if (children_.empty()) os << tarn::util::string_util::toXML(t->get_class()->get_value(node_->get_leaf()));
  os << "\" recordCount=\"" << node_->get_cases_count() << "\">" << std::endl;
  node_->toXML(t, os);
  for (const _decision_tree* c : children_) c->toXML(t, os);
  os << "</Node>" << std::endl;
}

void _decision_node::toXML(const table* t, std::ostream& os) const {
  if (!father_) {
    os << "<True />" << std::endl;
  } else {
    const column* a = t->get_attribute(father_->get_split_attribute_index());
    const std::string field = tarn::util::string_util::toXML(a->get_name());
    if (a->is_continuous())
      os << "<SimplePredicate field=\"" << field << "\" operator=\"" << (branch_ == 1 ? "lessOrEqual" : "greaterThan")
         << "\" value=\"" << father_->get_threshold().value << "\" />" << std::endl;
    else
      os << "<SimplePredicate field=\"" << field << "\" operator=\"equal\" value=\""
         << tarn::util::string_util::toXML(a->get_value(branch_)) << "\" />" << std::endl;
  }
  if (status_ != NEW_NODE || activated_) toXML_class_distribution(t, os);
}

void _decision_node::toXML_class_distribution(const table* t, std::ostream& os) const {
  os << std::fixed << std::setprecision(3);
  const column* cls = t->get_class();
  for (unsigned c = 1; c < distribution_.size(); ++c)
    os << "<ScoreDistribution value=\"" << tarn::util::string_util::toXML(cls->get_value(c)) << "\" recordCount =\""
       << distribution_[c] << "\" />" << std::endl;
}

}  // namespace sylva::impls
