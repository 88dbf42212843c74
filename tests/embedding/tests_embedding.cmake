zv_test_suite(embedding_tests
  ${CMAKE_CURRENT_SOURCE_DIR}/embedding/bh_tree_test.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/embedding/tsne_test.cpp)
