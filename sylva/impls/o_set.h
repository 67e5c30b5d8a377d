#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tarn/adt/set.h"
#include "tarn/data_types/datatype.h"
#include "tarn/util/nocopy.h"

namespace tarn::inpout {
class obinstream;
class ibinstream;
}  // namespace tarn::inpout

namespace sylva::impls {

using tarn::inpout::ibinstream;
using tarn::inpout::obinstream;

// A column's value domain. Index 0 stands for the unknown value; indices 1..n
// are the ranks of the n distinct known values in ascending order, so index
// order is value order. This base class is also the domain of datatype
// "null", a column without values.
//
// Typed domains collect values while loading and are finished (sorted and
// indexed) by their first query; queries are const and finish lazily, so a
// domain must be queried once before several threads read it.
class o_set : private tarn::util::nocopy {
public:
  o_set(const std::string& datatype, bool admits_null, const char* null_value);
  virtual ~o_set();

  virtual void insert(const char* s);
  virtual unsigned size_of_known() const;
  virtual bool get_order(const char* s, unsigned& order) const;
  virtual std::string get_value(unsigned i) const;
  virtual o_set* clone() const;
  virtual int leq(const std::string& a, const std::string& b) const;
  virtual int leq(unsigned i, const std::string& s) const;
  virtual std::string find_mid(unsigned i, unsigned j) const;
  virtual obinstream& bin_out(obinstream& out) const;
  virtual ibinstream& bin_in(ibinstream& in);

  bool admits_null() const { return admits_null_; }
  bool contains_null() const { return contains_null_; }
  void set_contains_null(bool v) { contains_null_ = v; }
  const char* get_null() const { return null_value_.c_str(); }
  std::string get_datatype() const { return datatype_; }
  bool is_dt_null() const { return datatype_ == "null"; }
  bool is_dt_numeric() const;
  // Called for every loaded field: the first character settles almost all.
  bool is_null(const char* s) const {
    return s[0] == null_value_.c_str()[0] && std::strcmp(s, null_value_.c_str()) == 0;
  }
  // Throws what insert() throws for the unknown token when it is not
  // admitted; changes nothing, so loading threads may ask at once.
  void admit_null() const;
  // Bytes the domain holds, itself included: a declared, empty domain costs
  // little, a filled one about its values.
  virtual std::size_t footprint() const;

  // The domain for a datatype word: integer, uinteger, float, double,
  // string or null; any other word throws "invalid o_set type = " + word.
  static o_set* NEW_O_SET(const std::string& word, bool admits_null, const char* null_value);

protected:
  // The unknown token met while inserting: recorded, or refused.
  void insert_null();

  bool contains_null_ = false;
  bool admits_null_;
  std::string null_value_;
  std::string datatype_;
};

// Domain of values of type T (datatype<int>, datatype<unsigned int>,
// datatype<float>, datatype<double> or datatype<std::string>).
template <class T>
class o_set_typed : public o_set {
public:
  using key_type = typename T::key_type;

  o_set_typed(const std::string& datatype, bool admits_null, const char* null_value)
      : o_set(datatype, admits_null, null_value) {}

  void insert(const char* s) override;
  unsigned size_of_known() const override;
  bool get_order(const char* s, unsigned& order) const override;
  std::string get_value(unsigned i) const override;
  o_set* clone() const override;
  int leq(const std::string& a, const std::string& b) const override;
  int leq(unsigned i, const std::string& s) const override;
  std::string find_mid(unsigned i, unsigned j) const override;
  obinstream& bin_out(obinstream& out) const override;
  ibinstream& bin_in(ibinstream& in) override;
  std::size_t footprint() const override;

  // The finished ascending values (index i is element i - 1).
  const std::vector<T>& values() const {
    finalise();
    return *sorted_;
  }
  // Replaces the domain's values by finished ones: distinct and ascending,
  // as a domain built from another source than text (in-memory arrays, a
  // merge of partial domains) knows them already.
  void assign_sorted(std::vector<T> values);
  // Parses a value text; throws the type's own message when it is not one.
  static key_type parse(const char* s);
  // The same for a text of `length` bytes (s[length] is NUL).
  static key_type parse(const char* s, std::size_t length);
  // Text form of a value: decimal for integers, "%.30f" without trailing
  // zeros (and without a bare point) for reals, the string itself.
  static std::string to_text(const T& v);

private:
  void finalise() const;
  void reopen();

  mutable tarn::adt::set<T> set_;
  mutable std::unique_ptr<std::vector<T>> sorted_;
  mutable bool sorted_ready_ = false;
};

using tarn::data_types::datatype;
extern template class o_set_typed<datatype<int>>;
extern template class o_set_typed<datatype<unsigned int>>;
extern template class o_set_typed<datatype<float>>;
extern template class o_set_typed<datatype<double>>;
extern template class o_set_typed<datatype<std::string>>;

}  // namespace sylva::impls
