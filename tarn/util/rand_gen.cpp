#include "tarn/util/rand_gen.h"

#include <cstdlib>

namespace tarn::util::rand_gen {

long double draw() { return static_cast<long double>(std::rand()) / rmax; }

}  // namespace tarn::util::rand_gen
