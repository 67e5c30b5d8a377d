#include "sylva/impls/column.h"

#include <ostream>
#include <stdexcept>

#include "sylva/impls/quality_measure.h"
#include "tarn/inpout/binstream.h"

namespace sylva::impls {

// ---------------------------------------------------------------- column

column::column(_type kind, const std::string& name, o_set* domain) : kind_(kind), name_(name), domain_(domain) {}

column::~column() { delete domain_; }

column* column::clone(bool) const { return new column(kind_, name_, domain_->clone()); }
void column::reserve(unsigned) {}
unsigned column::size() const { return 0; }
void column::push_back(const char*) {}
unsigned column::get_row_index(unsigned) const { return 0; }
bool column::less_than(unsigned, unsigned) const { return false; }

obinstream& column::bin_out(obinstream& out) const { return out; }
ibinstream& column::bin_in(ibinstream& in) { return in; }
void column::push_index(unsigned) {}

void column::toXML(std::ostream& os) const { os << "<WARNING value=\"XML output not implemented\" />" << std::endl; }

w_sequence* column::partition(const w_pair*, const w_pair*, unsigned, float, float&, index_range&,
                              const partition_desc&) const {
  throw std::runtime_error("[column::partition] method not defined for column type '" + get_type() + "'");
}

void column::partition_all(const w_pair* begin, const w_pair* end, unsigned count, float total,
                           const partition_desc& pd, branch_lists& out) const {
  for (unsigned b = 1; b <= count; ++b) {
    out.ratios.push_back(0);
    out.ranges.emplace_back();
    out.cases.push_back(partition(begin, end, b, total, out.ratios.back(), out.ranges.back(), pd));
  }
}

void column::sort_as_measure(const column*, w_sequence*, const index_range&) const {}

void column::quality_measure(const column*, float, w_sequence*, index_range&, float, const options*,
                             splitting_desc& out, bool) const {
  out.branches = 0;
  out.col = this;
  out.fail();
}

index_range column::get_range() const {
  const unsigned n = domain_->size_of_known();
  return n == 0 ? index_range(0, 0) : index_range(1, n + 1);
}

unsigned column::get_index(const char* text) const {
  unsigned order = 0;
  return domain_->get_order(text, order) ? order : 0;
}

std::string column::find_threshold(unsigned i, unsigned j) const {
  return is_continuous() ? domain_->find_mid(i, j) : std::string(domain_->get_null());
}

void column::splitting_desc::set_partition_desc(partition_desc& pd) const {
  pd.reset();
  pd.value = col->find_threshold(lower, upper);
  pd.branches = branches;
  if (!col->is_continuous()) return;
  const o_set* d = col->get_o_set();
  pd.domain = d;
  pd.code = col->get_index(pd.value.c_str());
  // Values not above the threshold: leq(i, text) is 0 exactly for i = 1..below.
  unsigned lo = 0, hi = d->size_of_known();
  while (lo < hi) {
    const unsigned mid = lo + (hi - lo + 1) / 2;
    if (d->leq(mid, pd.value) == 0)
      lo = mid;
    else
      hi = mid - 1;
  }
  pd.below = lo;
}

unsigned column::partition_desc::index_in(const column& c) const {
  return domain == c.get_o_set() ? code : c.get_index(value.c_str());
}

bool column::admits_null(const std::string& word) { return word != "weights"; }

std::string column::type_word(int kind) {
  switch (kind) {
    case DISCRETE: return "discrete";
    case CLASS: return "class";
    case CONTINUOUS: return "continuous";
    case WEIGHTS: return "weights";
    case IGNORE: return "ignore";
    default: return "unspecified";
  }
}

int column::kind_of(const std::string& word) {
  for (int k = DISCRETE; k <= IGNORE; ++k)
    if (type_word(k) == word) return k;
  return -1;
}

column* column::NEW_COLUMN(o_set* domain, const std::string& name, const std::string& word, std::string& error) {
  if (!domain) return error = "No set of values provided", nullptr;
  const int kind = kind_of(word);
  if (kind < 0) return error = "Unknown column type: " + word, nullptr;
  const bool numeric = domain->is_dt_numeric(), unknowns = domain->contains_null();
  if (kind == CONTINUOUS && !numeric)
    return error = "Continuous column '" + name + "' requires a numeric data type", nullptr;
  if (kind == WEIGHTS && !numeric)
    return error = "Weights column '" + name + "' requires a non-negative numeric data type", nullptr;
  if (kind == WEIGHTS && unknowns) return error = "Weights column '" + name + "' does not admit unknown values", nullptr;
  if (kind == CLASS && unknowns) return error = "Class column '" + name + "' does not admit unknown values", nullptr;
  if (domain->is_dt_null() && kind != IGNORE)
    return error = "Null set of column values can only be used for ignore column type", nullptr;
  if (!admits_null(word) && unknowns) return error = "Column type " + word + " does not admit unknown values", nullptr;

  const auto k = static_cast<_type>(kind);
  const unsigned long long n = domain->size_of_known();
  if (kind == IGNORE && domain->is_dt_null()) return new column(k, name, domain);
  if (n <= 2 && kind == DISCRETE && !unknowns) return new column_bool(k, name, domain);
  if (n <= 254) return new column_typed<unsigned char>(k, name, domain);
  if (n <= 65534) return new column_typed<unsigned short>(k, name, domain);
  if (n <= 4294967294ull) return new column_typed<unsigned int>(k, name, domain);
  return new column_typed<unsigned long long>(k, name, domain);
}

// ------------------------------------------------------------- partition

namespace {

// Rows of a discrete branch b: those with index b, and the unknown rows with
// their weight scaled by b's share of the known weight.
template <class Codes>
w_sequence* partition_discrete(Codes codes, const w_pair* begin, const w_pair* end, unsigned b, float total,
                               float& ratio, index_range& range) {
  float k = 0, u = 0;
  size_t count = 0;
  for (const w_pair* p = begin; p != end; ++p) {
    const unsigned x = codes[p->first];
    if (x == b) {
      k += p->second;
      ++count;
    } else if (x == 0) {
      u += p->second;
      ++count;
    }
  }
  ratio = k / (total - u);
  auto* out = new w_sequence();
  out->reserve(count);
  for (const w_pair* p = begin; p != end; ++p) {
    const unsigned x = codes[p->first];
    if (x == b)
      out->push_back(*p);
    else if (x == 0)
      out->emplace_back(p->first, p->second * ratio);
  }
  range = index_range(b, b + 1);
  return out;
}

// Rows of a continuous branch: 1 takes indices <= t, 2 indices > t. The
// ratio of branch 1 counts the unknown rows in its numerator (0 <= t); that
// quirk of the original design is kept on purpose.
template <class Codes>
w_sequence* partition_continuous(Codes codes, const w_pair* begin, const w_pair* end, unsigned b, unsigned t,
                                 float total, float& ratio, index_range& range) {
  const bool low = b == 1;
  float k = 0, u = 0;
  size_t count = 0;
  for (const w_pair* p = begin; p != end; ++p) {
    const unsigned x = codes[p->first];
    if (low ? x <= t : x > t) {
      k += p->second;
      ++count;
    } else if (x == 0) {
      if (!low) u += p->second;
      ++count;
    }
  }
  ratio = k / (total - u);
  auto* out = new w_sequence();
  out->reserve(count);
  unsigned smallest = t, largest = t;
  for (const w_pair* p = begin; p != end; ++p) {
    const unsigned x = codes[p->first];
    if (x == 0) {
      out->emplace_back(p->first, p->second * ratio);
    } else if (low ? x <= t : x > t) {
      out->push_back(*p);
      smallest = std::min(smallest, x);
      largest = std::max(largest, x);
    }
  }
  range = index_range(smallest, largest + 1);
  return out;
}

// All branches of a discrete split: the sums of each branch and of the
// unknown rows are taken in list order, as branch by branch.
template <class Codes>
void partition_all_discrete(Codes codes, const w_pair* begin, const w_pair* end, unsigned count, float total,
                            column::branch_lists& out) {
  std::vector<float> known(count + 1, 0.0f);
  std::vector<size_t> sizes(count + 1, 0);
  float unknown = 0;
  for (const w_pair* p = begin; p != end; ++p) {
    const unsigned x = codes[p->first];
    if (x == 0) {
      unknown += p->second;
      ++sizes[0];
    } else if (x <= count) {
      known[x] += p->second;
      ++sizes[x];
    }
  }
  for (unsigned b = 1; b <= count; ++b) {
    out.ratios.push_back(known[b] / (total - unknown));
    out.ranges.emplace_back(b, b + 1);
    out.cases.push_back(new w_sequence());
    out.cases.back()->reserve(sizes[b] + sizes[0]);
  }
  for (const w_pair* p = begin; p != end; ++p) {
    const unsigned x = codes[p->first];
    if (x == 0) {
      for (unsigned b = 0; b < count; ++b) out.cases[b]->emplace_back(p->first, p->second * out.ratios[b]);
    } else if (x <= count) {
      out.cases[x - 1]->push_back(*p);
    }
  }
}

// Both branches of a continuous split, with the low branch's ratio counting
// the unknown rows as partition() does.
template <class Codes>
void partition_all_continuous(Codes codes, const w_pair* begin, const w_pair* end, unsigned t, float total,
                              column::branch_lists& out) {
  float low = 0, high = 0, unknown = 0;
  size_t low_size = 0, high_size = 0, unknown_size = 0;
  for (const w_pair* p = begin; p != end; ++p) {
    const unsigned x = codes[p->first];
    if (x <= t) {
      low += p->second;
      ++(x == 0 ? unknown_size : low_size);
    } else {
      high += p->second;
      ++high_size;
    }
    if (x == 0) unknown += p->second;
  }
  out.ratios = {low / (total - 0.0f), high / (total - unknown)};
  out.cases = {new w_sequence(), new w_sequence()};
  out.cases[0]->reserve(low_size + unknown_size);
  out.cases[1]->reserve(high_size + unknown_size);
  unsigned smallest[2] = {t, t}, largest[2] = {t, t};
  for (const w_pair* p = begin; p != end; ++p) {
    const unsigned x = codes[p->first];
    if (x == 0) {
      out.cases[0]->emplace_back(p->first, p->second * out.ratios[0]);
      out.cases[1]->emplace_back(p->first, p->second * out.ratios[1]);
      continue;
    }
    const int b = x <= t ? 0 : 1;
    out.cases[b]->push_back(*p);
    smallest[b] = std::min(smallest[b], x);
    largest[b] = std::max(largest[b], x);
  }
  out.ranges = {index_range(smallest[0], largest[0] + 1), index_range(smallest[1], largest[1] + 1)};
}

template <class Codes>
void partition_all_by(const column& c, Codes codes, const w_pair* begin, const w_pair* end, unsigned count,
                      float total, const column::partition_desc& pd, column::branch_lists& out) {
  if (c.is_discrete() || c.is_class()) return partition_all_discrete(codes, begin, end, count, total, out);
  if (c.is_continuous() && count == 2)
    return partition_all_continuous(codes, begin, end, pd.index_in(c), total, out);
  // Anything else goes branch by branch, with partition's own errors.
  for (unsigned b = 1; b <= count; ++b) {
    out.ratios.push_back(0);
    out.ranges.emplace_back();
    out.cases.push_back(c.partition(begin, end, b, total, out.ratios.back(), out.ranges.back(), pd));
  }
}

template <class Codes>
w_sequence* partition_by(const column& c, Codes codes, const w_pair* begin, const w_pair* end, unsigned branch,
                         float total, float& ratio, index_range& range, const column::partition_desc& pd) {
  if (c.is_discrete() || c.is_class()) return partition_discrete(codes, begin, end, branch, total, ratio, range);
  if (c.is_continuous()) {
    const unsigned t = pd.index_in(c);
    return partition_continuous(codes, begin, end, branch, t, total, ratio, range);
  }
  throw std::runtime_error("[column::partition] method not defined for column type '" + c.get_type() + "'");
}

// Whether a continuous attribute's measure over n cases sorts them (rather
// than counting them by value).
bool measured_by_sorting(const index_range& range, size_t n) {
  return !split_rules::by_value_counts(n, range.second - range.first);
}

// Dispatch of a column's split measure once per node and attribute.
template <class Codes>
void measure(const column& c, Codes codes, const column* class_col, float total, w_sequence* cases,
             index_range& range, float min_obj, const options* opts, column::splitting_desc& out, bool copy,
             bool discrete_only) {
  out.branches = 0;
  out.col = &c;
  if (range.second - range.first <= 1) return out.fail();
  const unsigned classes = class_col->get_distinct() - 1;
  const bool done = visit_codes(*class_col, [&](auto cls) {
    if (c.is_discrete()) {
      QualityMeasureDiscrete(codes, cls, classes, c.get_o_set()->size_of_known(), total, *cases, range, min_obj,
                             out);
    } else if (c.is_continuous() && !discrete_only) {
      if (!measured_by_sorting(range, cases->size()))
        QualityMeasureContinuousRainForest(codes, cls, classes, total, *cases, range, min_obj, opts, out);
      else
        QualityMeasureContinuous(codes, cls, classes, total, *cases, range, min_obj, opts, out, copy);
    } else {
      out.fail();
    }
  });
  if (!done) out.fail();
}

}  // namespace

// ---------------------------------------------------------- column_typed

template <class T>
column* column_typed<T>::clone(bool structure_only) const {
  auto* c = new column_typed<T>(kind_, name_, domain_->clone());
  if (!structure_only) c->data_ = data_;
  return c;
}

template <class T>
void column_typed<T>::push_back(const char* text) {
  unsigned order = 0;
  if (!domain_->get_order(text, order)) throw std::runtime_error("column require a valid o_set");
  data_.push_back(static_cast<T>(order));
}

template <class T>
w_sequence* column_typed<T>::partition(const w_pair* begin, const w_pair* end, unsigned branch, float total,
                                       float& ratio, index_range& range, const partition_desc& pd) const {
  return partition_by(*this, array_codes<T>{data_.data()}, begin, end, branch, total, ratio, range, pd);
}

template <class T>
void column_typed<T>::partition_all(const w_pair* begin, const w_pair* end, unsigned count, float total,
                                    const partition_desc& pd, branch_lists& out) const {
  partition_all_by(*this, array_codes<T>{data_.data()}, begin, end, count, total, pd, out);
}

template <class T>
void column_typed<T>::sort_as_measure(const column* class_col, w_sequence* cases, const index_range& range) const {
  // The measure's own conditions: a continuous attribute with two values or
  // more, measured by sorting, with class codes it can read.
  if (!is_continuous() || range.second - range.first <= 1 || cases->empty()) return;
  if (!measured_by_sorting(range, cases->size())) return;
  if (!visit_codes(*class_col, [](auto) {})) return;
  sort_cases_by_code(array_codes<T>{data_.data()}, *cases, range);
}

template <class T>
void column_typed<T>::quality_measure(const column* class_col, float total, w_sequence* cases, index_range& range,
                                      float min_obj, const options* opts, splitting_desc& out, bool copy) const {
  measure(*this, array_codes<T>{data_.data()}, class_col, total, cases, range, min_obj, opts, out, copy, false);
}

// Storage: u32 row count, then one index of the column's width per row.
template <class T>
obinstream& column_typed<T>::bin_out(obinstream& out) const {
  out << static_cast<unsigned int>(data_.size());
  return out.write_bytes(data_.data(), data_.size() * sizeof(T));
}

template <class T>
ibinstream& column_typed<T>::bin_in(ibinstream& in) {
  const unsigned rows = in.read_count(sizeof(T));
  const unsigned known = domain_->size_of_known();
  // Index 0 is the unknown value: only a domain that says it met one may
  // hold it (growth trusts that flag to leave unknowns out).
  const T least = domain_->contains_null() ? 0 : 1;
  std::vector<T> data;
  // Read in slices: where the size of the data is unknown (compressed
  // files), the count is only believed as far as the data go.
  constexpr unsigned slice = 65536;
  for (unsigned done = 0; done < rows;) {
    const unsigned n = std::min(slice, rows - done);
    data.resize(done + n);
    in.read_bytes(data.data() + done, n * sizeof(T));
    for (unsigned i = done; i < done + n; ++i)
      if (data[i] > known || data[i] < least)
        throw tarn::inpout::binary_format_error("column index beyond its domain");
    done += n;
  }
  data_ = std::move(data);
  return in;
}

template class column_typed<unsigned char>;
template class column_typed<unsigned short>;
template class column_typed<unsigned int>;
template class column_typed<unsigned long long>;

// ----------------------------------------------------------- column_bool

column* column_bool::clone(bool structure_only) const {
  auto* c = new column_bool(kind_, name_, domain_->clone());
  if (!structure_only) c->bits_ = bits_;
  return c;
}

void column_bool::push_back(const char* text) {
  unsigned order = 0;
  if (!domain_->get_order(text, order) || order == 0)
    throw std::runtime_error("[column::push_back] index not found for value '" + std::string(text) + "'");
  bits_.push_back(order == 2);
}

// Storage: u32 bit count, then the bits in 32-bit words.
obinstream& column_bool::bin_out(obinstream& out) const {
  out << bits_.size();
  return out.write_bytes(bits_.data(), ((static_cast<size_t>(bits_.size()) + 31) / 32) * 4);
}

ibinstream& column_bool::bin_in(ibinstream& in) {
  const unsigned bits = in.read_count(0);
  const size_t words = (static_cast<size_t>(bits) + 31) / 32;
  in.require(words * 4);
  std::vector<std::uint32_t> data;
  constexpr size_t slice = 16384;
  for (size_t done = 0; done < words;) {
    const size_t n = std::min(slice, words - done);
    data.resize(done + n);
    in.read_bytes(data.data() + done, n * 4);
    done += n;
  }
  // With fewer than two known values no bit may be set.
  if (domain_->size_of_known() < 2) {
    for (size_t i = 0; i < data.size(); ++i)
      if (data[i]) throw tarn::inpout::binary_format_error("column index beyond its domain");
  }
  bits_.assign(bits, std::move(data));
  return in;
}

w_sequence* column_bool::partition(const w_pair* begin, const w_pair* end, unsigned branch, float total,
                                   float& ratio, index_range& range, const partition_desc& pd) const {
  return partition_by(*this, bit_codes{bits_.data()}, begin, end, branch, total, ratio, range, pd);
}

void column_bool::partition_all(const w_pair* begin, const w_pair* end, unsigned count, float total,
                                const partition_desc& pd, branch_lists& out) const {
  partition_all_by(*this, bit_codes{bits_.data()}, begin, end, count, total, pd, out);
}

void column_bool::quality_measure(const column* class_col, float total, w_sequence* cases, index_range& range,
                                  float min_obj, const options* opts, splitting_desc& out, bool copy) const {
  measure(*this, bit_codes{bits_.data()}, class_col, total, cases, range, min_obj, opts, out, copy, true);
}

}  // namespace sylva::impls
