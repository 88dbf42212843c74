// growTree's instantiations for int predictors.
#include "classregtree/grow_tree_driver.hpp"

namespace zv::classregtree {
ZV_GROW_TREE_INSTANCES(, int)
}  // namespace zv::classregtree
