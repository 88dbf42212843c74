zv_test_suite(linkage_tests
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_test.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/host/language_functions_test.cpp)
