zv_test_suite(dbscan_tests
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/dbscan_test.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/silhouette_test.cpp)
