#pragma once

// The loading rules read straight, as the reference that the parallel table
// loader is compared with: one line after another on one thread, every field
// inserted into a fresh domain, the columns built over the domains, every
// field pushed into its column, with the log and the errors that this order
// produces.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/tokenizer.h"

namespace load_reference {

struct loaded {
  std::string error;  // the message, or empty
  std::string log;    // at verbosity 200
  std::vector<std::unique_ptr<sylva::impls::column>> columns;
  unsigned rows = 0;
};

inline void progress(std::ostream& log, unsigned rows) {
  if (rows % 10000 == 0) log << "  " << rows << "\r" << std::flush;
}

// Loads `data_file` into the columns declared by `declared`.
inline loaded load(const sylva::impls::table& declared, const std::string& data_file, char sep) {
  using namespace sylva::impls;
  loaded out;
  std::ostringstream log;
  std::vector<std::unique_ptr<o_set>> domains;
  try {
    std::unique_ptr<tarn::inpout::stream> s(tarn::inpout::stream::FROM_FILE(data_file, sep));
    const unsigned k = declared.get_no_attributes();
    for (unsigned j = 0; j < k; ++j) {
      const o_set* d = declared.get_attribute(j)->get_o_set();
      domains.emplace_back(o_set::NEW_O_SET(d->get_datatype(), d->admits_null(), "?"));
    }
    log << "Reading data " << std::endl << " ... 1st pass: " << std::endl;
    unsigned rows = 0;
    while (s->read_line()) {
      progress(log, ++rows);
      if (tarn::util::count_fields(s->get_line(), s->get_delim()) != k)
        throw std::runtime_error("bad row format (row " + std::to_string(rows) + "): " + s->get_line());
      for (unsigned j = 0; j < k; ++j) domains[j]->insert(s->next_field());
    }
    s->check_complete();
    log << "  " << rows << " rows read. Indexing ... ";
    for (unsigned j = 0; j < k; ++j) {
      std::string error;
      const column* c = declared.get_attribute(j);
      column* built = column::NEW_COLUMN(domains[j].get(), c->get_name(), c->get_type(), error);
      if (!built) throw std::runtime_error(error);
      domains[j].release();
      out.columns.emplace_back(built);
    }
    log << " done." << std::endl << " ... 2nd pass: " << std::endl;
    if (!s->rewind()) throw std::runtime_error("cannot rewind");
    out.rows = 0;
    while (s->read_line()) {
      progress(log, ++out.rows);
      for (unsigned j = 0; j < k; ++j) out.columns[j]->push_back(s->next_field());
    }
    s->check_complete();
    log << "  " << out.rows << " rows read." << std::endl;
  } catch (const std::runtime_error& e) {
    out.error = std::string("Reading training data: ") + e.what();
    out.columns.clear();
  }
  out.log = log.str();
  return out;
}

// Expects the loaded columns of `t` to equal the reference's in every
// respect: storage, domain values and unknowns, and every row's index.
inline void expect_same(const sylva::impls::table& t, const loaded& ref, const std::string& what) {
  ASSERT_TRUE(ref.error.empty()) << ref.error;
  ASSERT_EQ(t.get_no_attributes(), ref.columns.size()) << what;
  EXPECT_EQ(t.get_no_rows(), ref.rows) << what;
  for (unsigned j = 0; j < ref.columns.size(); ++j) {
    const sylva::impls::column& a = *t.get_attribute(j);
    const sylva::impls::column& b = *ref.columns[j];
    const std::string where = what + ", column " + b.get_name();
    ASSERT_EQ(typeid(a).name(), typeid(b).name()) << where;
    const sylva::impls::o_set& da = *a.get_o_set();
    const sylva::impls::o_set& db = *b.get_o_set();
    ASSERT_EQ(da.size_of_known(), db.size_of_known()) << where;
    EXPECT_EQ(da.contains_null(), db.contains_null()) << where;
    for (unsigned i = 1; i <= db.size_of_known(); ++i) ASSERT_EQ(da.get_value(i), db.get_value(i)) << where;
    ASSERT_EQ(a.size(), b.size()) << where;
    for (unsigned r = 0; r < b.size(); ++r) ASSERT_EQ(a.get_row_index(r), b.get_row_index(r)) << where << ", row " << r;
  }
}

}  // namespace load_reference
