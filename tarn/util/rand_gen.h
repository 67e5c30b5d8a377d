#pragma once

namespace tarn::util::rand_gen {

// rand() draws are turned into fractions in [0, 1) by dividing by 2^31.
inline constexpr long double rmax = 2147483648.0L;

// A fraction x with 0 <= x < 1 from the process-wide generator.
long double draw();

}  // namespace tarn::util::rand_gen
