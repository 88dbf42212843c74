zv_test_suite(omp_tests ${CMAKE_CURRENT_SOURCE_DIR}/sparse/omp_test.cpp)
