#include "options.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

std::string set_text(std::string& field, const char* v) {
  field = v;
  return {};
}

std::string set_stem(run_settings& s, const char* v) {
  s.metadata_file = std::string(v) + ".names";
  s.data_file = std::string(v) + ".data";
  return {};
}

std::string set_holdout(double& field, const char* v) {
  const double f = std::strtod(v, nullptr) / 100;
  if (f <= 0 || f > 1) return "Holdout must be in (0,100]";
  field = f;
  return {};
}

std::string set_min_obj(run_settings& s, const char* v) {
  const double m = std::strtod(v, nullptr);
  if (m <= 1) return "MinObjects must be > 1";
  s.min_obj = static_cast<float>(m);
  return {};
}

std::string set_confidence(run_settings& s, const char* v) {
  const double c = std::strtod(v, nullptr);
  if (c <= 0 || c > 1) return "Confidence level must be in (0,1]";
  s.confidence = static_cast<float>(c);
  return {};
}

std::string set_cores(run_settings& s, const char* v) {
  const long n = std::strtol(v, nullptr, 10);
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  if (n < 1 || n > online) return "<n> must be in [1," + std::to_string(online) + "]";
  s.cores = static_cast<int>(n);
  return {};
}

}  // namespace

const std::vector<option_spec>& option_table() {
  static const std::vector<option_spec> table = {
      {"-f", true, 0, "    -f <file>   metadata in <file>.names and training data in <file>.data",
       [](run_settings& s, const char* v) { return set_stem(s, v); }},
      {"-fm", true, 0, "    -fm <file>  metadata in <file> (*)",
       [](run_settings& s, const char* v) { return set_text(s.metadata_file, v); }},
      {"-fd", true, 0, "    -fd <file>  training data in <file> (*)",
       [](run_settings& s, const char* v) { return set_text(s.data_file, v); }},
      {"-ft", true, 0, "    -ft <file>  test data in <file> (*)",
       [](run_settings& s, const char* v) { return set_text(s.test_file, v); }},
      {"-fs", true, 0, "    -fs <file>  score data in <file> (*)",
       [](run_settings& s, const char* v) { return set_text(s.score_file, v); }},
      {"-bd", true, 0, "    -bd <file>  training data in binary format in <file>",
       [](run_settings& s, const char* v) { return set_text(s.table_binary_in, v); }},
      {"-db", true, 2, "    -db <file>  training data binary output in <file>",
       [](run_settings& s, const char* v) { return set_text(s.table_binary_out, v); }},
      {"-sep", true, 0, "    -sep <c>    column separator in files (default ',')",
       [](run_settings& s, const char* v) { return set_text(s.separator, v); }},
      {"-tb", true, 2, "    -tb <file>  tree binary output to <file>",
       [](run_settings& s, const char* v) { return set_text(s.tree_binary_out, v); }},
      {"-bt", true, 1, "    -bt <file>  No dataset. Tree binary input from <file>",
       [](run_settings& s, const char* v) { return set_text(s.tree_binary_in, v); }},
      {"-h", true, 1, "    -h <num>    Holdout on training data: random <num>% as training and rest as test",
       [](run_settings& s, const char* v) { return set_holdout(s.holdout_random, v); }},
      {"-hf", true, 1, "    -hf <num>   Holdout on training data: first <num>% as training and rest as test",
       [](run_settings& s, const char* v) { return set_holdout(s.holdout_first, v); }},
      {"-m", true, 1, "    -m <num>    minimum cases to split -- must be > 1", set_min_obj},
      {"-c", true, 1, "    -c <num>    pruning confidence level -- must be in (0,1]", set_confidence},
      {"-c4.5", false, 1, "    -c4.5       true c4.5 pruning strategy (takes longer)",
       [](run_settings& s, const char*) { return s.pruning = 1, std::string(); }},
      {"-np", false, 1, "    -np         no pruning at all",
       [](run_settings& s, const char*) { return s.pruning = 0, std::string(); }},
      {"-tstd", false, 2, "    -tstd       text output to stdout",
       [](run_settings& s, const char*) { return s.text_std = true, std::string(); }},
      {"-lstd", false, 2, "    -lstd       log output to stdout",
       [](run_settings& s, const char*) { return s.log_std = true, std::string(); }},
      {"-xstd", false, 2, "    -xstd       tree XML output to stdout",
       [](run_settings& s, const char*) { return s.xml_std = true, std::string(); }},
      {"-dstd", false, 2, "    -dstd       tree DOT output to stdout",
       [](run_settings& s, const char*) { return s.dot_std = true, std::string(); }},
      {"-s", true, 2, "    -s <file>   score output to <file>",
       [](run_settings& s, const char* v) { return set_text(s.score_output, v); }},
      {"-t", true, 2, "    -t <file>   text output to <file>",
       [](run_settings& s, const char* v) { return set_text(s.text_file, v); }},
      {"-l", true, 2, "    -l <file>   log output appended to <file>",
       [](run_settings& s, const char* v) { return set_text(s.log_file, v); }},
      {"-x", true, 2, "    -x <file>   tree XML output to <file>",
       [](run_settings& s, const char* v) { return set_text(s.xml_file, v); }},
      {"-d", true, 2, "    -d <file>   tree DOT output to <file>",
       [](run_settings& s, const char* v) { return set_text(s.dot_file, v); }},
      {"-ff", true, 3, "    -ff <n> run using <n> core-CPU", set_cores},
  };
  return table;
}

std::string usage_text() {
  static const char* const headers[] = {
      " [doptions]: DataSet Options", " [toptions]: Tree Construction Options", " [ooptions]: Output Options",
      " Parallel options"};
  // Options are listed in the usage in this order within their section.
  static const char* const order[] = {"-f", "-fm", "-fd", "-ft", "-fs", "-bd", "-sep",                 // dataset
                                      "-bt", "-c", "-m", "-c4.5", "-np", "-h", "-hf",                   // tree
                                      "-db", "-tb", "-l", "-t", "-x", "-d", "-s",                       // output
                                      "-lstd", "-tstd", "-xstd", "-dstd", "-ff"};
  std::string text = "Command line: arbor [doptions] [toptions] [ooption]\n";
  int section = -1;
  for (const char* name : order) {
    for (const option_spec& o : option_table()) {
      if (std::strcmp(o.name, name) != 0) continue;
      if (o.section != section) text += std::string(headers[section = o.section]) + "\n";
      text += std::string(o.usage) + "\n";
    }
  }
  return text + "\n(*) .gz files are automatically gunzipped.\n";
}

parse_outcome parse_options(int argc, const char* const argv[], run_settings& s) {
  for (int i = 1; i < argc; ++i) {
    const option_spec* found = nullptr;
    for (const option_spec& o : option_table()) {
      if (std::strcmp(o.name, argv[i]) == 0) {
        found = &o;
        break;
      }
    }
    if (!found) return {false, std::string("Unknown command: ") + argv[i]};
    const char* value = nullptr;
    if (found->takes_value) {
      if (i + 1 >= argc) return {false, std::string("Missing value for option ") + argv[i]};
      value = argv[++i];
    }
    const std::string message = found->apply(s, value);
    if (!message.empty()) return {false, message};
  }
  return {};
}
