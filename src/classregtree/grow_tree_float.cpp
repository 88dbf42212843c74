// growTree's instantiations for float predictors.
#include "classregtree/grow_tree_driver.hpp"

namespace zv::classregtree {
ZV_GROW_TREE_INSTANCES(, float)
}  // namespace zv::classregtree
