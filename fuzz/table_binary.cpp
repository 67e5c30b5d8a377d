// The binary table reader, through the library's own entry point. The first
// byte holds flags: bit 0 stores the rest gzip-compressed, bit 1 then cuts
// the compressed file short by 1 to 16 bytes (bits 4 and 5), bits 6 and 7
// give the pruning strategy of the tree grown on a table that reads. A cut
// file must fail; a table that reads must train, and its model must survive
// its own binary form.

#include <memory>
#include <stdexcept>

#include "support.h"
#include "sylva/sylva.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  bool cut = false;
  const std::string content = fuzz::binary_input(data, size, cut);
  std::unique_ptr<sylva::table> t;
  try {
    t.reset(sylva::table::fromBinary(fuzz::scratch_file("t.bin", content)));
  } catch (const std::runtime_error&) {
    return 0;
  }
  if (cut) fuzz::fail("a binary table cut short loaded");
  fuzz::exercise_table(*t->impl(), data[0] >> 6);
  return 0;
}
