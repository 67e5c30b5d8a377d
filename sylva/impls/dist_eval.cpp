#include "sylva/impls/dist_eval.h"

#include <algorithm>
#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/dist_build.h"
#include "sylva/impls/dist_comm.h"
#include "sylva/impls/table.h"
#include "tarn/util/cronos.h"
#include "tarn/util/tokenizer.h"

namespace sylva::impls::dist {

conf_matrix* test_matrix(communicator& comm, const decision_tree& model, const std::string& path, char separator) {
  tarn::util::cronos timer;
  timer.start();
  row_error error;
  std::vector<text_block> blocks = read_share(comm, path, separator, error);
  const table* t = model.get_table();
  const column* cls = t->get_class();
  const unsigned class_index = t->get_class_index();
  conf_matrix local(t);
  std::vector<std::string> values;
  for (text_block& b : blocks) {
    if (error.exists() && b.first_row + 1 > error.row) break;
    auto s = block_stream(b, separator);
    try {
      for (std::uint64_t row = b.first_row + 1; t->load_row(*s, values, static_cast<unsigned>(row)); ++row) {
        const unsigned predicted = model.predict(values, 1.0f).first;
        local.add(predicted, cls->get_index(values[class_index].c_str()), 1.0f);
      }
    } catch (const std::runtime_error& e) {
      error.row = b.first_row + 1;  // the block's rows before it are fine
      // The row number is in the message; blocks come in file order.
      error.message = e.what();
      break;
    }
  }
  const row_error first = first_error(comm, error);
  if (first.exists()) throw std::runtime_error(first.message);
  timer.stop();
  local.set_elapsed(timer.get_elapsed());
  return sum_matrix(comm, local);
}

row_error score_file(communicator& comm, const decision_tree& model, const std::string& path, char separator,
                     char field_separator, std::ostream* out) {
  row_error error;
  std::vector<text_block> blocks = read_share(comm, path, separator, error);
  const unsigned k = model.get_table()->get_no_attributes();
  std::vector<std::string> values(k);
  std::vector<std::string> texts;
  for (text_block& b : blocks) {
    if (error.exists() && b.first_row + 1 > error.row) break;
    auto s = block_stream(b, separator);
    std::ostringstream text;
    std::uint64_t row = b.first_row + 1;
    for (; s->read_line(); ++row) {
      const unsigned fields = tarn::util::count_fields(s->get_line(), s->get_delim());
      if (fields < k) {
        error.row = row;
        error.message = "bad row format (row " + std::to_string(row) + "): " + s->get_line();
        break;
      }
      for (unsigned a = 0; a < k; ++a) values[a] = s->next_field();
      const auto p = model.prediction(values, 1.0f);
      if (fields > k) text << s->next_field() << field_separator;
      text << p.first << field_separator << p.second << std::endl;
    }
    texts.push_back(text.str());
    if (error.exists()) break;
  }
  const row_error first = first_error(comm, error);
  // Rank 0 writes the blocks in file order, up to the first error: it learns
  // every rank's first rows and takes their texts in that order.
  packer starts;
  for (size_t i = 0; i < texts.size(); ++i)
    if (!first.exists() || blocks[i].first_row + 1 <= first.row) starts.put(blocks[i].first_row);
  const std::vector<std::vector<char>> all = comm.all_gather(starts.bytes());
  if (comm.rank() != 0) {
    for (size_t i = 0; i < texts.size(); ++i)
      if (!first.exists() || blocks[i].first_row + 1 <= first.row)
        comm.send(0, std::vector<char>(texts[i].begin(), texts[i].end()));
    return first;
  }
  std::vector<std::pair<std::uint64_t, int>> order;
  for (int r = 0; r < comm.size(); ++r) {
    unpacker in(all[static_cast<size_t>(r)]);
    while (!in.done()) order.emplace_back(in.get<std::uint64_t>(), r);
  }
  std::sort(order.begin(), order.end());
  size_t own = 0;
  for (const auto& [row, r] : order) {
    if (r == 0) {
      *out << texts[own++];
    } else {
      const std::vector<char> text = comm.receive(r);
      out->write(text.data(), static_cast<std::streamsize>(text.size()));
    }
  }
  out->flush();
  return first;
}

}  // namespace sylva::impls::dist
