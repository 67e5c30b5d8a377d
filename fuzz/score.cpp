// The score path: a model read back from its binary file scores a fuzzed
// score file and tests on it as a test file. The first byte holds flags:
// bit 0 picks the model (golf, or a small one over every numeric data type
// with a weights column), bits 1 and 2 the separator, bit 3 stores the file
// gzip-compressed.

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "support.h"
#include "sylva/sylva.h"

namespace {

// The mixed set of fuzz/make-corpus.sh.
const char mixed_names[] =
    "f,float,continuous\nu,uinteger,continuous\ni,integer,discrete\nd,double,discrete\n"
    "s,string,ignore\nn,null,ignore\nw,float,weights\nk,string,class\n";
const char mixed_data[] =
    "1.5,3,-1,1e3,x,,1,a\n2.5,4,-2,2e3,y,,2,b\n0.5,?,?,?,z,,0.5,a\n7,9,-1,1e3,x,,1,b\n"
    "3.25,4,5,3e3,y,,1,a\n?,1,-2,2e3,?,,3,b\n9,12,5,1e3,x,,1,a\n4,7,-1,?,z,,1,b\n";

// A model as a run writes and reads it: grown, saved, read back.
std::unique_ptr<sylva::dtree> loaded_model(const std::string& names, const std::string& data, const char* file) {
  sylva::table t("training_set");
  t.load_meta_data(sylva::datasource("FILE#" + fuzz::scratch_file(std::string(file) + ".names", names) + "#,"));
  t.load_data(sylva::datasource("FILE#" + fuzz::scratch_file(std::string(file) + ".data", data) + "#,"), "?");
  sylva::dtree built(t.get_name());
  built.build(&t, nullptr, true, 0);
  const std::string model = fuzz::scratch_file(std::string(file) + ".model", "");
  built.toBinary(model);
  return std::unique_ptr<sylva::dtree>(sylva::dtree::fromBinary(model));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const auto golf = loaded_model(fuzz::example("golf.names"), fuzz::example("golf.data"), "golf");
  static const auto mixed = loaded_model(mixed_names, mixed_data, "mixed");
  if (size < 1) return 0;
  const unsigned flags = data[0];
  const sylva::dtree& model = flags & 1 ? *mixed : *golf;
  const char sep = ",;\t|"[flags >> 1 & 3];
  std::string content(fuzz::bytes(data + 1, size - 1));
  const char* name = "s.txt";
  if (flags & 8) {
    content = fuzz::gzip(content);
    name = "s.txt.gz";
  }
  const sylva::datasource source("FILE#" + fuzz::scratch_file(name, content) + "#" + std::string(1, sep));
  std::ostringstream out;
  try {
    model.evaluate(source, out, sep);
  } catch (const std::runtime_error&) {
  }
  try {
    delete model.predict(source);
  } catch (const std::runtime_error&) {
  }
  return 0;
}
