// The table's data dictionary and mining schema, PMML style.

#include <ostream>

#include "sylva/impls/table.h"
#include "tarn/util/string_util.h"

namespace sylva::impls {

using tarn::util::string_util::toXML;

void table::toXML_data_dictionary(std::ostream& os) const {
  os << "<DataDictionary numberOfFields=\"" << columns_.size() << "\">" << std::endl;
  for (const column* c : columns_) {
    const std::string name = toXML(c->get_name());
    if (c->is_ignore() || c->is_weights())
      os << "<Extender name=\"" << name << "\" value=\"" << c->get_type() << "\" />";
    else
      os << "<DataField name=\"" << name << "\" optype=\"" << (c->is_continuous() ? "continuous" : "categorical")
         << "\" />";
    os << std::endl;
  }
  os << "</DataDictionary>" << std::endl;
}

void table::toXML_mining_schema(std::ostream& os) const {
  os << "<MiningSchema>" << std::endl;
  for (const column* c : columns_) {
    const char* usage = c->is_ignore() ? "supplementary" : c->is_class() ? "predicted" : "active";
    os << "<MiningField name=\"" << toXML(c->get_name()) << "\" usageType=\"" << usage << "\" />" << std::endl;
  }
  os << "</MiningSchema>" << std::endl;
}

}  // namespace sylva::impls
