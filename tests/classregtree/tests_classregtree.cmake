zv_test_suite(classregtree_tests
  classregtree/criteria_test.cpp
  classregtree/grow_tree_test.cpp
  classregtree/nominal_split_test.cpp
  classregtree/surrogate_split_test.cpp)
