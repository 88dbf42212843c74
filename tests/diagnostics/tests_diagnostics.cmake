zv_test_suite(diagnostics_tests
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/cox_residuals_test.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht_test.cpp)
