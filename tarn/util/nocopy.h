#pragma once

namespace tarn::util {

// Private base of classes that own resources and must never be copied.
class nocopy {
protected:
  nocopy() = default;
  ~nocopy() = default;

public:
  nocopy(const nocopy&) = delete;
  nocopy& operator=(const nocopy&) = delete;
};

}  // namespace tarn::util
