#pragma once

// Builds implementation tables from metadata and data written inline.

#include <memory>
#include <sstream>
#include <string>

#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"
#include "test_support.h"

namespace table_fixture {

inline std::unique_ptr<tarn::inpout::stream> text_stream(const testing_support::scratch_dir& d, const std::string& name,
                                                         const std::string& content, char sep = ',') {
  return std::unique_ptr<tarn::inpout::stream>(tarn::inpout::stream::FROM_FILE(d.write(name, content), sep));
}

// A table for trees loaded from the two texts; throws what loading throws.
inline std::unique_ptr<sylva::impls::table> load(const std::string& names, const std::string& data,
                                                 std::ostream* log = nullptr, unsigned verbosity = 0) {
  testing_support::scratch_dir d;
  auto t = std::make_unique<sylva::impls::table>("t", true);
  t->set_log(log);
  t->set_verbosity(verbosity);
  t->load_meta_data(text_stream(d, "t.names", names).get(), true);
  t->load_data(text_stream(d, "t.data", data).get(), "?", true);
  return t;
}

// The message of the error that loading throws, or "no error".
inline std::string load_error(const std::string& names, const std::string& data) {
  try {
    load(names, data);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "no error";
}

inline const char golf_names[] =
    "outlook,string,discrete\ntemperature,integer,continuous\nhumidity,integer,continuous\n"
    "windy,string,discrete\nplay,string,class\n";

inline const char golf_data[] =
    "sunny,85,85,false,Don't Play\nsunny,80,90,true,Don't Play\novercast,83,78,false,Play\n"
    "rain,70,96,false,Play\nrain,68,80,false,Play\nrain,65,70,true,Don't Play\n"
    "overcast,64,65,true,Play\nsunny,72,95,false,Don't Play\nsunny,69,70,false,Play\n"
    "rain,75,80,false,Play\nsunny,75,70,true,Play\novercast,72,90,true,Play\n"
    "overcast,81,75,false,Play\nrain,71,80,true,Don't Play\n";

inline std::unique_ptr<sylva::impls::table> golf() { return load(golf_names, golf_data); }

}  // namespace table_fixture
