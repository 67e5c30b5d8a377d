// Metadata loading over arbitrary text: every line declares a column or the
// load fails with a message; a declared table then loads an empty data
// file, and one row of unknown values when it has a class column.

#include <stdexcept>
#include <string>

#include "support.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  sylva::impls::table t("training_set", true);
  try {
    auto meta = fuzz::memory_stream(fuzz::bytes(data, size), ',');
    t.load_meta_data(meta.get(), true);
  } catch (const std::runtime_error&) {
    return 0;
  }
  std::string row;
  for (unsigned i = 0; i < t.get_no_attributes(); ++i) row += i ? ",?" : "?";
  try {
    auto rows = fuzz::memory_stream(row, ',');
    t.load_data(rows.get(), "?", true);
  } catch (const std::runtime_error&) {
  }
  return 0;
}
