zv_test_suite(random_tests
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/randg_test.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/wswor_test.cpp)
