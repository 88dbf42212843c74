zv_test_suite(find_node_tests ${CMAKE_CURRENT_SOURCE_DIR}/classregtree/find_node_test.cpp)
