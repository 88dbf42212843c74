// growTree's instantiations for double predictors.
#include "classregtree/grow_tree_driver.hpp"

namespace zv::classregtree {
ZV_GROW_TREE_INSTANCES(, double)
}  // namespace zv::classregtree
