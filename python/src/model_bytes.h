#pragma once

// A model as the bytes of its binary model file: what save() writes, load()
// reads and pickling carries, so that one form serves files, the command
// line (-tb, -bt) and Python objects alike.

#include <memory>
#include <string>

namespace sylva::impls {
class decision_tree;
}

namespace arbor_python {

// The gzip-compressed record (level 1), as the library writes model files.
std::string model_to_bytes(const sylva::impls::decision_tree& model);

// A model from a file's bytes, gzip-compressed or plain (as the library
// reads files). Bytes that are not a whole model throw std::invalid_argument.
std::unique_ptr<sylva::impls::decision_tree> model_from_bytes(const std::string& bytes);

}  // namespace arbor_python
