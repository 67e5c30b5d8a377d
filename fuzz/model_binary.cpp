// The binary model reader, through the library's own entry point. The first
// byte holds flags: bit 0 stores the rest gzip-compressed, as models are
// written, bit 1 then cuts the compressed file short by 1 to 16 bytes (bits
// 4 and 5). A cut file must fail; a model that reads must render, predict,
// and survive its own binary form.

#include <memory>
#include <stdexcept>

#include "support.h"
#include "sylva/sylva.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  bool cut = false;
  const std::string content = fuzz::binary_input(data, size, cut);
  std::unique_ptr<sylva::dtree> m;
  try {
    m.reset(sylva::dtree::fromBinary(fuzz::scratch_file("m.bin", content)));
  } catch (const std::runtime_error&) {
    return 0;
  }
  if (cut) fuzz::fail("a binary model cut short loaded");
  fuzz::exercise_model(*m->impl());
  return 0;
}
