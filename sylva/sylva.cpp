#include "sylva/sylva.h"

#include <memory>
#include <stdexcept>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/identity.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/binstream.h"
#include "tarn/inpout/fs.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/cronos.h"

namespace sylva {

using tarn::inpout::stream;

std::string get_version() { return impls::identity::version; }
int get_build() { return impls::identity::build; }
std::string get_copyright() { return impls::identity::copyright; }

namespace {
std::unique_ptr<stream> open_source(const datasource& source) {
  return std::unique_ptr<stream>(stream::FROM_READER(source.get_descriptor()));
}

impls::w_sequence* seq(const table::subset* s) { return s ? static_cast<impls::w_sequence*>(s->impl()) : nullptr; }
}  // namespace

// ------------------------------------------------------------------ subset

table::subset::subset() : seq_(new impls::w_sequence()), owns_(true) {}
table::subset::subset(void* s) : seq_(s), owns_(false) {}
table::subset::~subset() {
  if (owns_) delete static_cast<impls::w_sequence*>(seq_);
}
void table::subset::reserve(unsigned n) { seq(this)->reserve(n); }
void table::subset::resize(unsigned n) { seq(this)->resize(n); }
unsigned table::subset::size() const { return static_cast<unsigned>(seq(this)->size()); }
void table::subset::push_back(unsigned row, float weight) { seq(this)->emplace_back(row, weight); }
void table::subset::set(unsigned i, unsigned row, float weight) { (*seq(this))[i] = impls::w_pair(row, weight); }
std::pair<unsigned, float> table::subset::get(unsigned i) const {
  const impls::w_pair& p = (*seq(this))[i];
  return {p.first, p.second};
}

namespace {
// A subset handle that owns a sequence made by the table.
table::subset* owned_subset(impls::w_sequence* s) {
  auto* h = new table::subset();
  seq(h)->swap(*s);
  delete s;
  return h;
}
}  // namespace

// ------------------------------------------------------------------- table

table::table(const std::string& name) : impl_(new impls::table(name, true)) {}
table::~table() { delete impl_; }

void table::load_meta_data(const datasource& source) {
  auto s = open_source(source);
  impl_->load_meta_data(s.get(), true);
}

void table::load_data(const datasource& source, const std::string& unknown, int threads) {
  auto s = open_source(source);
  impl_->load_data(s.get(), unknown, true, threads);
}

void table::set_verbosity(unsigned v) { impl_->set_verbosity(v); }
void table::set_log(std::ostream* log) { impl_->set_log(log); }
void table::set_progress(tarn::util::progress* p) { impl_->set_progress(p); }
unsigned table::get_no_rows() const { return impl_->get_no_rows(); }
unsigned table::get_no_columns() const { return impl_->get_no_attributes(); }
std::string table::get_name() const { return impl_->get_name(); }
double table::get_elapsed() const { return impl_->get_elapsed(); }

std::string table::get_class(unsigned row) const {
  const impls::column* c = impl_->get_class();
  return c ? c->get_row_value(row) : std::string();
}

float table::get_weight(unsigned row) const {
  const impls::column* w = impl_->get_weights();
  return w ? static_cast<float>(std::strtod(w->get_row_value(row).c_str(), nullptr)) : 1.0f;
}

table::subset* table::get_wsubset_all() const { return owned_subset(impl_->get_wsubset_all()); }
table::subset* table::get_wsubset_first_n(unsigned n) const { return owned_subset(impl_->get_wsubset_first_n(n)); }
table::subset* table::get_wsubset_random(unsigned n) const { return owned_subset(impl_->get_wsubset_random(n)); }
table::subset* table::get_wsubset_difference(subset* other) const {
  return owned_subset(impl_->get_wsubset_difference(seq(other)));
}

void table::toXML_data_dictionary(std::ostream& os) const { impl_->toXML_data_dictionary(os); }
void table::toXML_mining_schema(std::ostream& os) const { impl_->toXML_mining_schema(os); }

namespace {

// Writes a binary file through `write(stream)` under a temporary name and
// puts it in place only once it is complete.
template <class Write>
void write_binary(const std::string& file, bool compressed, int level, Write write) {
  tarn::inpout::fs::replacement target(file);
  {
    tarn::inpout::obinstream out(target.path(), compressed, level);
    write(out);
    if (!out.close()) throw std::runtime_error("File " + file + ": write failed");
  }
  if (!target.commit()) throw std::runtime_error("File " + file + ": write failed");
}

}  // namespace

void table::toBinary(const std::string& file) const {
  write_binary(file, false, -1, [&](tarn::inpout::obinstream& out) { out << static_cast<const impls::table*>(impl_); });
}

table* table::fromBinary(const std::string& file) {
  // Read through the gzip connection, which takes plain files as they are.
  tarn::inpout::ibinstream in(file, true);
  std::unique_ptr<impls::table> t;
  try {
    impls::table* raw = nullptr;
    in >> raw;
    t.reset(raw);
    in.expect_end();
  } catch (const std::exception&) {
    t.reset();
  }
  // A training table: every column that holds values holds one per row.
  if (!t || !t->holds_all_rows()) throw std::runtime_error("File " + file + ": not binary format");
  return new table(t.release());
}

// ------------------------------------------------------------- conf_matrix

conf_matrix::conf_matrix(const table* t) : impl_(new impls::conf_matrix(t ? t->impl() : nullptr)) {}
conf_matrix::conf_matrix(const conf_matrix* m) : impl_(m->impl_->clone()) {}
conf_matrix::~conf_matrix() { delete impl_; }
conf_matrix* conf_matrix::clone() const { return new conf_matrix(this); }
unsigned conf_matrix::size() const { return impl_->size(); }
float conf_matrix::get_element(unsigned i, unsigned j) const { return impl_->get_element(i, j); }
float conf_matrix::cases() const { return impl_->cases(); }
float conf_matrix::mis_perc() const { return impl_->mis_perc(); }
double conf_matrix::get_elapsed() const { return impl_->get_elapsed(); }
void conf_matrix::toTEXT(std::ostream& os, unsigned indent) const { impl_->toTEXT(os, indent); }
void conf_matrix::toXML(std::ostream& os) const { impl_->toXML(os, ""); }

// ------------------------------------------------------------------- dtree

dtree::dtree(const std::string& name) : impl_(new impls::decision_tree(name)) {}
dtree::~dtree() { delete impl_; }

bool dtree::set_conf_level(float cf) { return impl_->set_conf_level(cf); }
bool dtree::set_min_obj(float m) { return impl_->set_min_obj(m); }
bool dtree::set_split_type(SplitType st) {
  return impl_->set_split_type(static_cast<impls::decision_tree::SplitType>(st));
}
bool dtree::set_option(Options o) { return impl_->set_option(static_cast<impls::decision_tree::Options>(o)); }
bool dtree::set_pruning_strategy(PruningStrategy ps) {
  return impl_->set_pruning_strategy(static_cast<impls::decision_tree::PruningStrategy>(ps));
}
void dtree::set_progress(tarn::util::progress* p) { impl_->set_progress(p); }

void dtree::build(table* t, table::subset* s, bool evaluate, int cores) {
  impl_->build_pruned(t ? t->impl() : nullptr, seq(s), evaluate, cores);
}

unsigned dtree::training_n_rows() const { return impl_->training_n_rows(); }
unsigned dtree::depth() const { return impl_->depth(); }
unsigned dtree::size() const { return impl_->size(); }
double dtree::get_elapsed() const { return impl_->get_elapsed(); }

std::pair<std::string, float> dtree::predict(table* t, unsigned row, float weight) const {
  return impl_->prediction(t->impl(), row, weight);
}

std::pair<std::string, float> dtree::predict(const std::vector<std::string>& values, float weight) const {
  return impl_->prediction(values, weight);
}

conf_matrix* dtree::predict(table* t, table::subset* s) const {
  return new conf_matrix(impl_->predict(t ? t->impl() : nullptr, seq(s)));
}

conf_matrix* dtree::predict(const datasource& source) const {
  return new conf_matrix(impl_->predict(open_source(source).release(), true));
}

double dtree::evaluate(const datasource& source, std::ostream& out, char separator) const {
  tarn::util::cronos timer;
  timer.start();
  impl_->evaluate(open_source(source).release(), out, separator, true);
  timer.stop();
  return timer.get_elapsed();
}

conf_matrix* dtree::get_prediction() const {
  const impls::conf_matrix* m = impl_->get_prediction();
  if (m) return new conf_matrix(m->clone());
  return new conf_matrix(new impls::conf_matrix(std::vector<std::vector<float>>(), std::vector<std::string>()));
}

void dtree::toTEXT(std::ostream& os) const { impl_->toTEXT(os, 0); }
void dtree::toXML(std::ostream& os, const conf_matrix* test) const { impl_->toXML(os, test ? test->impl() : nullptr); }
void dtree::toDOT(std::ostream& os) const { impl_->toDOT(os); }
dtree* dtree::clone() const { return new dtree(impl_->clone()); }

void dtree::toBinary(const std::string& file) const {
  write_binary(file, true, 1, [&](tarn::inpout::obinstream& out) { out << static_cast<unsigned char>(1) << *impl_; });
}

dtree* dtree::fromBinary(const std::string& file) {
  // A file that does not open fails with the binary stream's own message.
  tarn::inpout::ibinstream in(file, true);
  try {
    if (!in.read_presence()) throw std::runtime_error("no model");
    auto d = std::make_unique<impls::decision_tree>("my_decision_tree");
    in >> *d;
    in.expect_end();
    return new dtree(d.release());
  } catch (const std::exception&) {
    throw std::runtime_error("File " + file + ": not a binary tree model");
  }
}

}  // namespace sylva
