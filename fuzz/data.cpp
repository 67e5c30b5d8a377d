// Data loading, plain and gzip. The first byte holds flags: bit 0 reads the
// data from a gzip file, bit 1 cuts that file short by 1 to 16 bytes (bits
// 4 and 5 say how many), bits 2 and 3 set the verbosity, bits 6 and 7 the
// pruning strategy of the tree grown afterwards. The rest is the metadata,
// a NUL byte, then the data; without a NUL it is all data for the golf
// metadata. A gzip file cut short must fail, never load as a shorter table.

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "support.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string golf_names = fuzz::example("golf.names");
  if (size < 1) return 0;
  const unsigned flags = data[0];
  const std::string_view rest = fuzz::bytes(data + 1, size - 1);
  const size_t nul = rest.find('\0');
  const std::string_view meta = nul == std::string_view::npos ? std::string_view(golf_names) : rest.substr(0, nul);
  const std::string_view rows = nul == std::string_view::npos ? rest : rest.substr(nul + 1);

  sylva::impls::table t("training_set", true);
  std::ostringstream log;
  t.set_log(&log);
  t.set_verbosity((flags >> 2 & 3) == 3 ? 200 : (flags >> 2 & 3));
  try {
    auto s = fuzz::memory_stream(meta, ',');
    t.load_meta_data(s.get(), true);
  } catch (const std::runtime_error&) {
    return 0;
  }
  const bool zipped = flags & 1, cut = zipped && (flags & 2);
  try {
    if (zipped) {
      std::string gz = fuzz::gzip(rows);
      if (cut) gz.resize(gz.size() - 1 - (flags >> 4 & 3) * 5);
      std::unique_ptr<tarn::inpout::stream> s(
          tarn::inpout::stream::FROM_FILE(fuzz::scratch_file("d.data.gz", gz), ','));
      t.load_data(s.get(), "?", true);
    } else {
      t.load_data(fuzz::memory_stream(rows, ',').get(), "?", true);
    }
  } catch (const std::runtime_error&) {
    return 0;
  }
  if (cut) fuzz::fail("a gzip file cut short loaded");
  fuzz::exercise_table(t, flags >> 6);
  return 0;
}
