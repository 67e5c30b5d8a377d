#pragma once

// Small helpers shared by the test program: scratch files, the dataset
// directory and running the built arbor executable as a child process.

#include <exception>
#include <string>
#include <vector>

namespace testing_support {

// A fresh scratch directory for one test; removed with its content on
// destruction.
class scratch_dir {
public:
  scratch_dir();
  ~scratch_dir();
  scratch_dir(const scratch_dir&) = delete;
  scratch_dir& operator=(const scratch_dir&) = delete;

  const std::string& path() const { return path_; }
  // Path of a file inside the directory.
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Writes `content` to the named file and returns its path.
  std::string write(const std::string& name, const std::string& content) const;

private:
  std::string path_;
};

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);
std::string gzip_file(const std::string& path, const std::string& content);

// The public dataset directory, e.g. data_dir() + "/golf/golf".
std::string data_dir();
bool data_available(const std::string& name);
std::string source_dir();

struct run_result {
  int status = -1;   // exit status as the shell sees it (0..255)
  std::string out;   // standard output
  std::string err;   // standard error
};

// Runs the built arbor with the given arguments (argv[0] is added), in
// directory `cwd` when not empty.
run_result run_arbor(const std::vector<std::string>& args, const std::string& cwd = "");
// Runs any program; argv[0] is the program.
run_result run_program(const std::vector<std::string>& argv, const std::string& cwd = "");
// True when `program` is found on PATH.
bool have_program(const std::string& program);

// The message of the exception `f` throws, or "no error".
template <class F>
std::string error_of(F f) {
  try {
    f();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "no error";
}

// The golf tree of examples/golf as the text renderer writes it: outlook at
// the root, humidity under sunny (75: the largest value not above 77.5),
// windy under rain; leaf errors are the pessimistic estimates at CF 0.25.
inline const char golf_tree[] =
    "\n"
    "outlook = overcast: Play (4.0/1.2)\n"
    "outlook = rain:\n"
    "|   windy = false: Play (3.0/1.1)\n"
    "|   windy = true: Don't Play (2.0/1.0)\n"
    "outlook = sunny:\n"
    "|   humidity <= 75 : Play (2.0/1.0)\n"
    "|   humidity > 75 : Don't Play (3.0/1.1)\n";

}  // namespace testing_support
