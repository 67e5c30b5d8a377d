#include "test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testing_support {

namespace fs = std::filesystem;

scratch_dir::scratch_dir() {
  const char* base = std::getenv("ARBOR_TMP");
  std::string root = base && *base ? base : fs::temp_directory_path().string();
  fs::create_directories(root);
  std::string templ = root + "/arbor-test-XXXXXX";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw std::runtime_error("cannot create scratch directory");
  path_ = buf.data();
}

scratch_dir::~scratch_dir() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}

std::string scratch_dir::write(const std::string& name, const std::string& content) const {
  std::string p = file(name);
  write_file(p, content);
  return p;
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string gzip_file(const std::string& path, const std::string& content) {
  gzFile f = gzopen(path.c_str(), "wb9");
  if (!f) throw std::runtime_error("cannot write " + path);
  if (!content.empty()) gzwrite(f, content.data(), static_cast<unsigned>(content.size()));
  gzclose(f);
  return path;
}

std::string data_dir() { return ARBOR_DATA_DIR; }
std::string source_dir() { return ARBOR_SOURCE_DIR; }

bool data_available(const std::string& name) {
  return fs::exists(data_dir() + "/" + name + "/" + name + ".names");
}

run_result run_program(const std::vector<std::string>& argv, const std::string& cwd) {
  // Standard output and error go to files so that large outputs cannot
  // fill a pipe and stall the child.
  scratch_dir tmp;
  std::string out_path = tmp.file("stdout"), err_path = tmp.file("stderr");
  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    int o = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int e = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (o < 0 || e < 0) _exit(127);
    dup2(o, 1);
    dup2(e, 2);
    if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(127);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  run_result r;
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  r.out = read_file(out_path);
  r.err = read_file(err_path);
  return r;
}

run_result run_arbor(const std::vector<std::string>& args, const std::string& cwd) {
  std::vector<std::string> argv{ARBOR_EXE};
  argv.insert(argv.end(), args.begin(), args.end());
  return run_program(argv, cwd);
}

bool have_program(const std::string& program) {
  return run_program({"sh", "-c", "command -v " + program + " >/dev/null 2>&1"}).status == 0;
}

}  // namespace testing_support
