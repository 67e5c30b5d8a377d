#pragma once

// The figures a long phase reports while it runs: loading counts rows and
// bytes, growing counts nodes. Library code only hands its figures to an
// observer; what becomes of them (a live line on a terminal, nothing at all)
// is the caller's choice, so the library never writes to a terminal itself.

#include <cstdint>

namespace tarn::util {

class progress {
public:
  enum phase { LOADING = 0, GROWING = 1 };

  virtual ~progress() = default;

  // A phase starts; its elapsed time counts from here.
  virtual void begin(phase p) = 0;
  // Rows and bytes read so far in the loading phase.
  virtual void loading(std::uint64_t rows, std::uint64_t bytes) = 0;
  // Nodes grown so far, nodes still waiting to be split, and the cases
  // (summed weights) those open nodes hold.
  virtual void growing(std::uint64_t nodes, std::uint64_t open, double cases) = 0;
  // The phase has ended, normally or by an error.
  virtual void end() = 0;
};

// One phase reported to an optional observer: begins on construction, ends
// on destruction (an exception that leaves the phase ends it too), and
// forwards nothing when there is no observer. Reports cost a virtual call
// and a clock read in the observer, so call them per chunk of rows or per
// node, not per value.
class progress_scope {
public:
  progress_scope(progress* observer, progress::phase p) : observer_(observer) {
    if (observer_) observer_->begin(p);
  }
  ~progress_scope() {
    if (observer_) observer_->end();
  }
  progress_scope(const progress_scope&) = delete;
  progress_scope& operator=(const progress_scope&) = delete;

  void loading(std::uint64_t rows, std::uint64_t bytes) {
    if (observer_) observer_->loading(rows, bytes);
  }
  void growing(std::uint64_t nodes, std::uint64_t open, double cases) {
    if (observer_) observer_->growing(nodes, open, cases);
  }

private:
  progress* observer_;
};

}  // namespace tarn::util
