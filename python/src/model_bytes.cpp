#include "model_bytes.h"

#include <zlib.h>

#include <stdexcept>

#include "sylva/impls/decision_tree.h"

namespace arbor_python {

using sylva::impls::decision_tree;

namespace {

// Deflate's gzip wrapper: window bits 15, plus 16.
constexpr int gzip_window = 15 + 16;

std::string gzip(const char* data, size_t size) {
  z_stream z{};
  if (deflateInit2(&z, 1, Z_DEFLATED, gzip_window, 8, Z_DEFAULT_STRATEGY) != Z_OK)
    throw std::runtime_error("model bytes: cannot start compression");
  std::string out(deflateBound(&z, static_cast<uLong>(size)), '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
  z.avail_in = static_cast<uInt>(size);
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  const int status = deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  if (status != Z_STREAM_END) throw std::runtime_error("model bytes: compression failed");
  return out;
}

// Every gzip member in turn, as a gzip file reader does.
std::string gunzip(const std::string& in) {
  std::string out;
  size_t at = 0;
  char chunk[65536];
  while (at < in.size()) {
    z_stream z{};
    if (inflateInit2(&z, gzip_window) != Z_OK) throw std::runtime_error("model bytes: cannot start decompression");
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data() + at));
    z.avail_in = static_cast<uInt>(in.size() - at);
    int status = Z_OK;
    while (status == Z_OK) {
      z.next_out = reinterpret_cast<Bytef*>(chunk);
      z.avail_out = sizeof chunk;
      status = inflate(&z, Z_NO_FLUSH);
      out.append(chunk, sizeof chunk - z.avail_out);
    }
    at += z.total_in;
    inflateEnd(&z);
    if (status != Z_STREAM_END) throw std::invalid_argument("not a binary tree model: truncated or corrupted gzip data");
  }
  return out;
}

bool is_gzip(const std::string& b) {
  return b.size() >= 2 && static_cast<unsigned char>(b[0]) == 0x1f && static_cast<unsigned char>(b[1]) == 0x8b;
}

}  // namespace

std::string model_to_bytes(const decision_tree& model) {
  const std::string raw = model.to_bytes();
  return gzip(raw.data(), raw.size());
}

std::unique_ptr<decision_tree> model_from_bytes(const std::string& bytes) {
  const std::string raw = is_gzip(bytes) ? gunzip(bytes) : bytes;
  try {
    auto model = std::make_unique<decision_tree>("my_decision_tree");
    model->from_bytes(raw.data(), raw.size());
    return model;
  } catch (const std::exception& e) {
    throw std::invalid_argument(std::string("not a binary tree model: ") + e.what());
  }
}

}  // namespace arbor_python
