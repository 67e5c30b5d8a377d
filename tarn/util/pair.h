#pragma once

namespace tarn::util {

// A plain pair with public fields; trivially copyable so that vectors of it
// move as raw memory (case lists hold millions of them).
template <class A, class B>
struct pair {
  A first;
  B second;

  pair() = default;
  pair(const A& a, const B& b) : first(a), second(b) {}

  friend bool operator==(const pair& x, const pair& y) { return x.first == y.first && x.second == y.second; }
};

}  // namespace tarn::util
