// Growth on several cores. Until the task farm is in place the tree is grown
// by the sequential builder, which gives the same tree.

#include "sylva/impls/decision_tree.h"

namespace sylva::impls {

void _decision_tree::build_ff(const table* t, unsigned int split_type, float min_obj, const options* opts, int) {
  build_breadth(t, split_type, min_obj, opts);
}

}  // namespace sylva::impls
