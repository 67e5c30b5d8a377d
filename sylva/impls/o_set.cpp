#include "sylva/impls/o_set.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "tarn/inpout/binstream.h"
#include "tarn/util/numbers.h"
#include "tarn/util/string_util.h"

namespace sylva::impls {

using tarn::data_types::datatype;

// ---------------------------------------------------------- parsing and text

namespace {

// strtod over the whole text (see tarn::util::parse_real).
bool parse_real(const char* s, std::size_t length, double& out) { return tarn::util::parse_real(s, length, out); }

std::string real_text(double v) {
  char buf[512];
  std::snprintf(buf, sizeof buf, "%.30f", v);
  std::string s(buf);
  if (s.find('.') != std::string::npos) {
    size_t last = s.find_last_not_of('0');
    s.erase(last + 1);
    if (s.back() == '.') s.pop_back();
  }
  return s;
}

template <class V>
typename datatype<V>::key_type parse_text(const char* s, std::size_t length);

template <>
int parse_text<int>(const char* s, std::size_t) {
  int v = 0;
  tarn::util::string_util::str2int(s, v);
  return v;
}

template <>
unsigned int parse_text<unsigned int>(const char* s, std::size_t) {
  unsigned int v = 0;
  tarn::util::string_util::str2int(s, v);
  return v;
}

// A float is the double that strtod reads, narrowed: the platform's own
// conversion, which the values of existing models were made with.
template <>
float parse_text<float>(const char* s, std::size_t length) {
  double d;
  if (!parse_real(s, length, d)) throw std::runtime_error(std::string(s) + ": not a float");
  return static_cast<float>(d);
}

template <>
double parse_text<double>(const char* s, std::size_t length) {
  double d;
  if (!parse_real(s, length, d)) throw std::runtime_error(std::string(s) + ": not a double");
  return d;
}

template <>
std::string_view parse_text<std::string>(const char* s, std::size_t length) {
  return std::string_view(s, length);
}

std::string value_text(int v) { return std::to_string(v); }
std::string value_text(unsigned int v) { return std::to_string(v); }
std::string value_text(float v) { return real_text(static_cast<double>(v)); }
std::string value_text(double v) { return real_text(v); }
std::string value_text(const std::string& v) { return v; }

}  // namespace

template <class T>
typename o_set_typed<T>::key_type o_set_typed<T>::parse(const char* s) {
  return parse_text<typename T::value_type>(s, std::strlen(s));
}

template <class T>
typename o_set_typed<T>::key_type o_set_typed<T>::parse(const char* s, std::size_t length) {
  return parse_text<typename T::value_type>(s, length);
}

template <class T>
std::string o_set_typed<T>::to_text(const T& v) {
  return value_text(v.value);
}

// ---------------------------------------------------------------- o_set

o_set::o_set(const std::string& datatype, bool admits_null, const char* null_value)
    : admits_null_(admits_null), null_value_(null_value ? null_value : ""), datatype_(datatype) {}

o_set::~o_set() = default;

bool o_set::is_dt_numeric() const {
  return datatype_ == "integer" || datatype_ == "uinteger" || datatype_ == "float";
}

void o_set::admit_null() const {
  if (!admits_null_) throw std::runtime_error("[o_set::insert()] called with unadmitted null value");
}

void o_set::insert_null() {
  admit_null();
  contains_null_ = true;
}

std::size_t o_set::footprint() const {
  const auto text = [](const std::string& s) { return s.capacity() > 15 ? s.capacity() + 1 : 0; };
  return sizeof(*this) + text(null_value_) + text(datatype_);
}

void o_set::insert(const char* s) {
  if (is_null(s)) insert_null();
}

unsigned o_set::size_of_known() const { return 0; }

bool o_set::get_order(const char* s, unsigned& order) const {
  if (contains_null_ && is_null(s)) {
    order = 0;
    return true;
  }
  return false;
}

std::string o_set::get_value(unsigned) const { return null_value_; }

o_set* o_set::clone() const {
  auto* c = new o_set(datatype_, admits_null_, null_value_.c_str());
  c->contains_null_ = contains_null_;
  return c;
}

int o_set::leq(const std::string&, const std::string&) const { return -1; }
int o_set::leq(unsigned, const std::string&) const { return -1; }

std::string o_set::find_mid(unsigned, unsigned) const {
  throw std::runtime_error("[o_set::find_threshold()] called for non-existing elements");
}

obinstream& o_set::bin_out(obinstream& out) const { return out; }
ibinstream& o_set::bin_in(ibinstream& in) { return in; }

o_set* o_set::NEW_O_SET(const std::string& word, bool admits_null, const char* null_value) {
  if (word == "integer") return new o_set_typed<datatype<int>>(word, admits_null, null_value);
  if (word == "uinteger") return new o_set_typed<datatype<unsigned int>>(word, admits_null, null_value);
  if (word == "float") return new o_set_typed<datatype<float>>(word, admits_null, null_value);
  if (word == "double") return new o_set_typed<datatype<double>>(word, admits_null, null_value);
  if (word == "string") return new o_set_typed<datatype<std::string>>(word, admits_null, null_value);
  if (word == "null") return new o_set(word, admits_null, null_value);
  throw std::runtime_error("invalid o_set type = " + word);
}

// ------------------------------------------------------------ o_set_typed

template <class T>
void o_set_typed<T>::finalise() const {
  if (sorted_ready_) return;
  sorted_ = set_.get();
  sorted_ready_ = true;
}

template <class T>
std::size_t o_set_typed<T>::footprint() const {
  std::size_t bytes = sizeof(*this) - sizeof(o_set) + o_set::footprint() + set_.footprint();
  if (sorted_) {
    bytes += sizeof(*sorted_) + sorted_->capacity() * sizeof(T);
    if constexpr (std::is_same_v<typename T::value_type, std::string>)
      for (const T& v : *sorted_) bytes += v.value.capacity() > 15 ? v.value.capacity() + 1 : 0;
  }
  return bytes;
}

template <class T>
void o_set_typed<T>::reopen() {
  if (!sorted_ready_) return;
  for (const T& v : *sorted_) set_.insert(typename T::key_type(v.value));
  sorted_.reset();
  sorted_ready_ = false;
}

template <class T>
void o_set_typed<T>::insert(const char* s) {
  reopen();
  if (is_null(s)) {
    insert_null();
    return;
  }
  set_.insert(parse(s));
}

template <class T>
void o_set_typed<T>::assign_sorted(std::vector<T> values) {
  for (size_t i = 1; i < values.size(); ++i)
    if (!(values[i - 1] < values[i])) throw std::runtime_error("[o_set::assign_sorted()] values not distinct and ascending");
  set_.get();  // drops whatever was collected
  sorted_ = std::make_unique<std::vector<T>>(std::move(values));
  sorted_ready_ = true;
}

template <class T>
unsigned o_set_typed<T>::size_of_known() const {
  finalise();
  return static_cast<unsigned>(sorted_->size());
}

template <class T>
bool o_set_typed<T>::get_order(const char* s, unsigned& order) const {
  if (is_null(s)) {
    if (!contains_null_) return false;
    order = 0;
    return true;
  }
  const key_type k = parse(s);
  finalise();
  auto it = std::lower_bound(sorted_->begin(), sorted_->end(), k,
                             [](const T& a, const key_type& b) { return a.value < b; });
  if (it == sorted_->end() || !it->equals(k)) return false;
  order = static_cast<unsigned>(it - sorted_->begin()) + 1;
  return true;
}

template <class T>
std::string o_set_typed<T>::get_value(unsigned i) const {
  finalise();
  if (i == 0 || i > sorted_->size()) return null_value_;
  return to_text((*sorted_)[i - 1]);
}

template <class T>
o_set* o_set_typed<T>::clone() const {
  finalise();
  auto* c = new o_set_typed<T>(datatype_, admits_null_, null_value_.c_str());
  c->contains_null_ = contains_null_;
  c->sorted_ = std::make_unique<std::vector<T>>(*sorted_);
  c->sorted_ready_ = true;
  return c;
}

namespace {

// a <= b as the domain compares values: numerically, strings byte-wise up to
// the first NUL.
template <class K>
int compare_leq(const K& a, const K& b) {
  return a <= b ? 0 : 1;
}

template <>
int compare_leq<std::string_view>(const std::string_view& a, const std::string_view& b) {
  return std::strcmp(a.data(), b.data()) <= 0 ? 0 : 1;
}

}  // namespace

template <class T>
int o_set_typed<T>::leq(const std::string& a, const std::string& b) const {
  if (is_null(a.c_str()) || is_null(b.c_str())) return -1;
  return compare_leq<key_type>(parse(a.c_str()), parse(b.c_str()));
}

template <class T>
int o_set_typed<T>::leq(unsigned i, const std::string& s) const {
  if (i == 0 || is_null(s.c_str())) return -1;
  const key_type k = parse(s.c_str());
  finalise();
  // An index beyond the domain cannot be compared; treat it as unknown.
  if (i > sorted_->size()) return -1;
  const T& v = (*sorted_)[i - 1];
  if constexpr (std::is_same_v<key_type, std::string_view>)
    return compare_leq<std::string_view>(std::string_view(v.value.c_str()), k);
  else
    return compare_leq<key_type>(v.value, k);
}

namespace {

template <class V>
V midpoint(V lo, V hi);

template <>
int midpoint<int>(int lo, int hi) {
  // Neither form can overflow: the difference is taken only when both values
  // have the same sign.
  if (lo >= 0 || hi < 0) return lo + (hi - lo) / 2;
  return (lo + hi) / 2;
}

template <>
unsigned int midpoint<unsigned int>(unsigned int lo, unsigned int hi) {
  return lo + (hi - lo) / 2;
}

}  // namespace

template <class T>
std::string o_set_typed<T>::find_mid(unsigned i, unsigned j) const {
  finalise();
  const unsigned n = static_cast<unsigned>(sorted_->size());
  if (i == 0 || j == 0 || i - 1 >= n || j - 1 >= n || i > j) {
    const bool zero = i == 0 || j == 0;
    throw std::runtime_error("[o_set::find_threshold()] called for non-existing elements " +
                             std::to_string(zero ? i : i - 1) + "-" + std::to_string(zero ? j : j - 1));
  }
  using V = typename T::value_type;
  if constexpr (std::is_same_v<V, std::string>) {
    throw std::runtime_error("mid_value() is undefined on type datatype_string");
  } else {
    const auto first = sorted_->cbegin() + (i - 1), last = sorted_->cbegin() + j;
    const V lo = first->value, hi = (last - 1)->value;
    // The threshold is the largest collected value not above the midpoint.
    const auto above = [&] {
      if constexpr (std::is_floating_point_v<V>) {
        const long double m = static_cast<long double>(lo) +
                              (static_cast<long double>(hi) - static_cast<long double>(lo)) * 0.5L;
        // An infinite end has no midpoint to speak of: towards +inf the
        // midpoint passes every finite value, so the threshold is the last
        // value below hi; towards -inf (or between both) it is lo. Either
        // way hi stays above the threshold, so the cut measured is the cut
        // made (taking hi itself would send every case to one side).
        if (m == std::numeric_limits<long double>::infinity()) return last - 1;
        if (std::isnan(m) || m == -std::numeric_limits<long double>::infinity()) return first + 1;
        return std::upper_bound(first, last, m,
                                [](long double x, const T& v) { return x < static_cast<long double>(v.value); });
      } else {
        const V m = midpoint<V>(lo, hi);
        return std::upper_bound(first, last, m, [](V x, const T& v) { return x < v.value; });
      }
    }();
    return to_text(*(above - 1));
  }
}

// ------------------------------------------------------------ binary form

namespace {

template <class V>
void write_value(obinstream& out, const V& v) {
  out << v;
}

template <class V>
void read_value(ibinstream& in, V& v) {
  in >> v;
}

template <>
void read_value<std::string>(ibinstream& in, std::string& v) {
  in.read_text(v);
}

}  // namespace

template <class T>
obinstream& o_set_typed<T>::bin_out(obinstream& out) const {
  finalise();
  out << static_cast<unsigned char>(1) << static_cast<unsigned int>(sorted_->size());
  for (const T& v : *sorted_) write_value(out, v.value);
  return out;
}

template <class T>
ibinstream& o_set_typed<T>::bin_in(ibinstream& in) {
  auto values = std::make_unique<std::vector<T>>();
  if (in.read_presence()) {
    const unsigned n = in.read_count();
    values->reserve(n < 65536 ? n : 65536);
    for (unsigned k = 0; k < n; ++k) {
      typename T::value_type v{};
      read_value(in, v);
      values->emplace_back(std::move(v));
      // Lookups search the values: they must ascend strictly.
      if (values->size() > 1 && !((*values)[values->size() - 2] < values->back()))
        throw tarn::inpout::binary_format_error("domain values out of order");
    }
  }
  sorted_ = std::move(values);
  sorted_ready_ = true;
  return in;
}

template class o_set_typed<datatype<int>>;
template class o_set_typed<datatype<unsigned int>>;
template class o_set_typed<datatype<float>>;
template class o_set_typed<datatype<double>>;
template class o_set_typed<datatype<std::string>>;

}  // namespace sylva::impls
