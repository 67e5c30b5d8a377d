// The extension module arbor._arbor: a thin layer between NumPy arrays and
// the sylva library. Columns go into a table directly (no text), the tree
// is grown without the GIL, and predictions run on a flat copy of the tree.
// Everything Python-specific about data (dtypes, pandas, labels) lives in
// the package's Python code.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "model_bytes.h"
#include "sylva/impls/array_predict.h"
#include "sylva/impls/decision_tree.h"
#include "sylva/impls/identity.h"
#include "sylva/impls/table.h"
#include "sylva/impls/table_arrays.h"

namespace py = pybind11;
using namespace sylva::impls;

namespace {

// Texts cross the boundary byte for byte: bytes that are not UTF-8 (a
// model read from a file in another encoding) survive as surrogates.
py::str to_py(const std::string& s) {
  PyObject* o = PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "surrogateescape");
  if (!o) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(o);
}

std::string from_py(py::handle h) {
  if (!PyUnicode_Check(h.ptr())) throw std::invalid_argument("a text was expected");
  py::object b = py::reinterpret_steal<py::object>(PyUnicode_AsEncodedString(h.ptr(), "utf-8", "surrogateescape"));
  if (!b) throw py::error_already_set();
  return std::string(PyBytes_AS_STRING(b.ptr()), static_cast<size_t>(PyBytes_GET_SIZE(b.ptr())));
}

// A one-dimensional array of T without copying when the caller's array
// already is one (a column of a row-major matrix included).
template <class T>
struct array_view {
  py::array_t<T> array;  // keeps a converted copy alive
  const T* data = nullptr;
  std::size_t stride = 1;
};

template <class T>
array_view<T> view_of(py::handle h, std::size_t rows, const std::string& what, bool contiguous = false) {
  auto a = py::array_t<T, py::array::forcecast>::ensure(h);
  if (!a) throw std::invalid_argument(what + ": not convertible to an array of numbers");
  if (a.ndim() != 1 || static_cast<std::size_t>(a.shape(0)) != rows)
    throw std::invalid_argument(what + ": expected " + std::to_string(rows) + " values in one dimension");
  const auto step = a.strides(0);
  if (rows > 1 && (step <= 0 || step % static_cast<py::ssize_t>(sizeof(T)) != 0 || (contiguous && step != sizeof(T))))
    a = py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(a);
  array_view<T> v{a, a.data(), 1};
  if (rows > 1) v.stride = static_cast<std::size_t>(a.strides(0)) / sizeof(T);
  return v;
}

// The arrays behind one column definition, kept alive while the table is built.
struct held_arrays {
  std::vector<py::array> arrays;
  template <class T>
  array_view<T> keep(array_view<T> v) {
    arrays.push_back(v.array);
    return v;
  }
};

// (name, kind, "float", values), (name, kind, "integer", values, mask or
// None) or (name, kind, "string", codes, texts).
array_column column_of(const py::tuple& def, std::size_t rows, held_arrays& held) {
  if (def.size() < 4) throw std::invalid_argument("a column definition holds name, kind, type and values");
  array_column c;
  c.name = from_py(def[0]);
  const int kind = column::kind_of(def[1].cast<std::string>());
  if (kind < 0) throw std::invalid_argument("column '" + c.name + "': unknown kind " + def[1].cast<std::string>());
  c.kind = static_cast<column::_type>(kind);
  const std::string type = def[2].cast<std::string>();
  const std::string what = "column '" + c.name + "'";
  if (type == "float") {
    const auto v = held.keep(view_of<double>(def[3], rows, what));
    c.values = real_values{v.data, v.stride};
  } else if (type == "integer" && def.size() == 5) {
    const auto v = held.keep(view_of<std::int64_t>(def[3], rows, what));
    const std::uint8_t* mask = nullptr;
    if (!def[4].is_none()) mask = held.keep(view_of<std::uint8_t>(def[4], rows, what + " mask", true)).data;
    c.values = integer_values{v.data, v.stride, mask};
  } else if (type == "string" && def.size() == 5) {
    const auto v = held.keep(view_of<std::int64_t>(def[3], rows, what));
    text_values t{v.data, v.stride, {}};
    for (py::handle s : py::list(def[4])) t.texts.push_back(from_py(s));
    c.values = std::move(t);
  } else {
    throw std::invalid_argument(what + ": unknown value type " + type);
  }
  return c;
}

decision_tree::PruningStrategy pruning_of(const std::string& word) {
  if (word == "default") return decision_tree::ERROR_BASED_PRUNING;
  if (word == "c4.5") return decision_tree::C45_PRUNING;
  if (word == "none") return decision_tree::NO_PRUNING;
  throw std::invalid_argument("pruning must be 'default', 'c4.5' or 'none', not '" + word + "'");
}

const char* pruning_word(decision_tree::PruningStrategy p) {
  return p == decision_tree::C45_PRUNING ? "c4.5" : p == decision_tree::NO_PRUNING ? "none" : "default";
}

// A grown or loaded model and, once asked for, its flat copy.
class model {
public:
  explicit model(std::unique_ptr<decision_tree> t) : tree_(std::move(t)) {
    if (!tree_->get_tree() || !tree_->get_table() || !tree_->get_table()->get_class())
      throw std::invalid_argument("not a binary tree model: it holds no tree or no class column");
  }

  const decision_tree& tree() const { return *tree_; }
  const table& columns() const { return *tree_->get_table(); }
  const flat_tree& flat() {
    if (!flat_) flat_ = std::make_unique<flat_tree>(*tree_);
    return *flat_;
  }

private:
  std::unique_ptr<decision_tree> tree_;
  std::unique_ptr<flat_tree> flat_;
};

std::unique_ptr<model> fit(const py::list& defs, std::size_t rows, float confidence, float min_cases,
                           const std::string& pruning, int cores, const std::string& name) {
  if (rows > 0xFFFFFFFFull) throw std::invalid_argument("a table holds at most 4294967295 rows");
  auto tree = std::make_unique<decision_tree>(name);
  if (!tree->set_conf_level(confidence)) throw std::invalid_argument("confidence must lie in [0, 1]");
  if (!tree->set_min_obj(min_cases)) throw std::invalid_argument("min_cases must be above 0");
  tree->set_pruning_strategy(pruning_of(pruning));
  held_arrays held;
  std::vector<array_column> columns;
  for (py::handle s : defs) columns.push_back(column_of(s.cast<py::tuple>(), rows, held));
  {
    py::gil_scoped_release free;
    std::unique_ptr<table> t = table_from_arrays(name, columns, static_cast<unsigned>(rows));
    tree->build_pruned(t.get(), nullptr, true, cores);
  }
  return std::make_unique<model>(std::move(tree));
}

template <class Write>
py::str render(const model& m, Write write) {
  std::ostringstream os;
  write(m.tree(), os);
  return to_py(os.str());
}

// The inputs of rows [begin, ...) of a batch.
std::vector<attribute_input> shifted(std::vector<attribute_input> in, std::size_t begin) {
  for (attribute_input& x : in) {
    if (x.kind == attribute_input::NONE) continue;
    const std::size_t width = x.kind == attribute_input::REAL      ? sizeof(double)
                              : x.kind == attribute_input::INTEGER ? sizeof(std::int64_t)
                                                                   : sizeof(std::int32_t);
    x.data = static_cast<const char*>(x.data) + begin * x.stride * width;
    if (x.unknown) x.unknown += begin;
  }
  return in;
}

// Probabilities in the caller's class order: each row's weights of those
// classes over their sum. A row whose weight is nowhere gets 1 for its
// class; where classes tie for the largest weight, the predicted one is
// raised by one unit in the last place, so that the first largest
// probability is always the predicted class. Not normalised: the weights.
void to_proba(const float* dist, const std::uint32_t* best, std::size_t rows, unsigned classes,
              const std::vector<std::uint32_t>& order, const std::vector<std::ptrdiff_t>& column_of_code, bool normalise,
              double* out) {
  const std::size_t k = order.size();
  for (std::size_t r = 0; r < rows; ++r) {
    const float* d = dist + r * classes;
    double* p = out + r * k;
    double total = 0;
    for (std::size_t j = 0; j < k; ++j) total += p[j] = d[order[j]];
    if (!normalise) continue;
    const std::ptrdiff_t mine = column_of_code[best[r]];
    if (total > 0)
      for (std::size_t j = 0; j < k; ++j) p[j] /= total;
    if (mine < 0) continue;
    if (!(total > 0)) p[mine] = 1;
    std::size_t first = 0;
    for (std::size_t j = 1; j < k; ++j)
      if (p[j] > p[first]) first = j;
    if (first != static_cast<std::size_t>(mine)) p[mine] = std::nextafter(p[first], HUGE_VAL);
  }
}

// One entry per attribute of the model's table: None, ("real", values),
// ("integer", values, mask or None) or ("codes", int32 codes). Returns the
// class codes, and with `order` (class codes) the probabilities of those
// classes (or their weights), rows by columns.
py::tuple predict(model& m, const py::list& inputs, std::size_t rows, unsigned threads, py::object order,
                  bool normalise) {
  held_arrays held;
  std::vector<attribute_input> in(inputs.size());
  for (std::size_t a = 0; a < in.size(); ++a) {
    if (inputs[a].is_none()) continue;
    const auto def = inputs[a].cast<py::tuple>();
    const std::string kind = def[0].cast<std::string>();
    const std::string what = "column '" + m.columns().get_attribute(static_cast<unsigned>(a))->get_name() + "'";
    if (kind == "real") {
      const auto v = held.keep(view_of<double>(def[1], rows, what));
      in[a] = {attribute_input::REAL, v.data, v.stride, nullptr};
    } else if (kind == "integer") {
      const auto v = held.keep(view_of<std::int64_t>(def[1], rows, what));
      const std::uint8_t* mask = nullptr;
      if (!def[2].is_none()) mask = held.keep(view_of<std::uint8_t>(def[2], rows, what + " mask", true)).data;
      in[a] = {attribute_input::INTEGER, v.data, v.stride, mask};
    } else if (kind == "codes") {
      const auto v = held.keep(view_of<std::int32_t>(def[1], rows, what));
      in[a] = {attribute_input::CODES, v.data, v.stride, nullptr};
    } else {
      throw std::invalid_argument(what + ": unknown input kind " + kind);
    }
  }
  const flat_tree& flat = m.flat();
  py::array_t<std::uint32_t> best(static_cast<py::ssize_t>(rows));
  std::uint32_t* b = best.mutable_data();
  if (order.is_none()) {
    {
      py::gil_scoped_release free;
      flat.predict(in, rows, nullptr, b, threads);
    }
    return py::make_tuple(best, py::none());
  }
  const auto codes = order.cast<std::vector<std::uint32_t>>();
  std::vector<std::ptrdiff_t> column_of_code(flat.classes(), -1);
  for (std::size_t j = 0; j < codes.size(); ++j) {
    if (codes[j] >= flat.classes()) throw std::invalid_argument("no class code " + std::to_string(codes[j]));
    column_of_code[codes[j]] = static_cast<std::ptrdiff_t>(j);
  }
  py::array_t<double> proba({static_cast<py::ssize_t>(rows), static_cast<py::ssize_t>(codes.size())});
  double* p = proba.mutable_data();
  {
    // In blocks, so that the float distributions never take the room of
    // the whole batch.
    py::gil_scoped_release free;
    constexpr std::size_t block = 65536;
    std::vector<float> dist(std::min(rows, block) * flat.classes());
    for (std::size_t begin = 0; begin < rows; begin += block) {
      const std::size_t n = std::min(block, rows - begin);
      flat.predict(shifted(in, begin), n, dist.data(), b + begin, threads);
      to_proba(dist.data(), b + begin, n, flat.classes(), codes, column_of_code, normalise, p + begin * codes.size());
    }
  }
  return py::make_tuple(best, proba);
}

// Domain codes of texts in a discrete column of the model: 0 for a text
// the domain does not hold, as the model reads values given as text.
py::array_t<std::int32_t> codes(const model& m, unsigned attribute, const py::list& texts) {
  const column* c = m.columns().get_attribute(attribute);
  py::array_t<std::int32_t> out(static_cast<py::ssize_t>(texts.size()));
  std::int32_t* o = out.mutable_data();
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::string s = from_py(texts[i]);
    try {
      o[i] = static_cast<std::int32_t>(c->get_index(s.c_str()));
    } catch (const std::runtime_error& e) {
      throw std::invalid_argument("column '" + c->get_name() + "': " + e.what());
    }
  }
  return out;
}

py::list column_list(const model& m) {
  py::list out;
  const table& t = m.columns();
  for (unsigned a = 0; a < t.get_no_attributes(); ++a) {
    const column* c = t.get_attribute(a);
    out.append(py::make_tuple(to_py(c->get_name()), c->get_type(), c->get_o_set()->get_datatype()));
  }
  return out;
}

py::list domain(const model& m, unsigned attribute) {
  const column* c = m.columns().get_attribute(attribute);
  py::list out;
  for (unsigned i = 1; i < c->get_distinct(); ++i) out.append(to_py(c->get_value(i)));
  return out;
}

py::bytes to_bytes(const model& m) {
  const std::string b = arbor_python::model_to_bytes(m.tree());
  return py::bytes(b);
}

std::unique_ptr<model> from_bytes(const py::bytes& b) {
  return std::make_unique<model>(arbor_python::model_from_bytes(std::string(b)));
}

unsigned checked_attribute(const model& m, unsigned a) {
  if (a >= m.columns().get_no_attributes()) throw std::out_of_range("no column " + std::to_string(a));
  return a;
}

}  // namespace

PYBIND11_MODULE(_arbor, mod) {
  mod.doc() = "The sylva library's trees for the arbor package.";
  mod.attr("version") = sylva::impls::identity::version;
  mod.attr("copyright") = sylva::impls::identity::copyright;
  mod.def("fit", &fit, py::arg("columns"), py::arg("rows"), py::arg("confidence"), py::arg("min_cases"),
          py::arg("pruning"), py::arg("cores"), py::arg("name"),
          "Grows and prunes a tree on columns given as arrays; the GIL is released while it grows.");
  py::class_<model>(mod, "Model")
      .def_static("from_bytes", &from_bytes)
      .def("to_bytes", &to_bytes)
      .def("text", [](const model& m) { return render(m, [](const decision_tree& t, std::ostream& os) { t.toTEXT(os, 0); }); })
      .def("dot", [](const model& m) { return render(m, [](const decision_tree& t, std::ostream& os) { t.toDOT(os); }); })
      .def("pmml",
           [](const model& m) { return render(m, [](const decision_tree& t, std::ostream& os) { t.toXML(os, nullptr); }); })
      .def_property_readonly("size", [](const model& m) { return m.tree().size(); })
      .def_property_readonly("depth", [](const model& m) { return m.tree().depth(); })
      .def_property_readonly("name", [](const model& m) { return to_py(m.tree().get_name()); })
      .def_property_readonly("confidence", [](const model& m) { return m.tree().get_conf_level(); })
      .def_property_readonly("min_cases", [](const model& m) { return m.tree().get_min_obj(); })
      .def_property_readonly("pruning", [](const model& m) { return pruning_word(m.tree().get_pruning_strategy()); })
      .def_property_readonly("class_index", [](const model& m) { return m.columns().get_class_index(); })
      .def("columns", &column_list, "(name, kind, data type) of every column of the model's table")
      .def("values", [](const model& m, unsigned a) { return domain(m, checked_attribute(m, a)); },
           "The known values of a column's domain as texts, in code order from 1.")
      .def("codes", [](const model& m, unsigned a, const py::list& t) { return codes(m, checked_attribute(m, a), t); })
      .def("predict", &predict, py::arg("inputs"), py::arg("rows"), py::arg("threads") = 1,
           py::arg("order") = py::none(), py::arg("normalise") = true,
           "(class codes, probabilities of the classes in `order` or None) of rows given per attribute; the GIL "
           "is released meanwhile. Not normalised: the mixed class weights.")
      .def("tested", [](model& m) { return m.flat().tested(); }, "Attributes some split of the tree tests.")
      .def(py::pickle([](const model& m) { return to_bytes(m); }, [](const py::bytes& b) { return from_bytes(b); }));
}
