#pragma once

// Tables built from in-memory arrays, one array per column, without a text
// round trip. A column's domain is made from its distinct values at once
// (sorted, as a text load would finish it) and every row gets its index.
// The values a column ends up with are those a text load gives for the same
// numbers written exactly: reals narrowed to float, integers as 32-bit ints,
// texts as they are; so the trees grown on either table are the same.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "sylva/impls/column.h"

namespace sylva::impls {

class table;

// Element r of a column is at data[r * stride] (stride in elements), so a
// column of a row-major matrix needs no copy.

// A "float" column: doubles narrowed to float; NaN is the unknown value,
// infinities (and values beyond the float range) are refused.
struct real_values {
  const double* data = nullptr;
  std::size_t stride = 1;
};

// An "integer" column: 32-bit values given as 64-bit ones; a row whose
// `unknown` byte is not 0 is unknown (no mask: none is).
struct integer_values {
  const std::int64_t* data = nullptr;
  std::size_t stride = 1;
  const std::uint8_t* unknown = nullptr;
};

// A "string" column: each row's value is texts[code]; a negative code, and
// the unknown token "?" among the texts, stand for the unknown value. Texts
// may repeat: equal texts are one value.
struct text_values {
  const std::int64_t* codes = nullptr;
  std::size_t stride = 1;
  std::vector<std::string> texts;
};

struct array_column {
  std::string name;
  column::_type kind = column::DISCRETE;
  std::variant<real_values, integer_values, text_values> values;
};

// A table for trees holding `rows` rows of the given columns, in order. A
// value its column cannot hold (an integer outside 32 bits, an infinite
// float, a code beyond the texts), and a column its kind refuses (an unknown class or weight, a
// continuous string column), throw std::invalid_argument naming the column.
std::unique_ptr<table> table_from_arrays(const std::string& name, const std::vector<array_column>& columns,
                                         unsigned rows);

}  // namespace sylva::impls
