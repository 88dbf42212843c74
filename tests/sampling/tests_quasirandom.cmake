# Quasi-random generation: Halton permutations and Sobol points.
zv_test_suite(halton_tests ${CMAKE_CURRENT_SOURCE_DIR}/sampling/halton_test.cpp)
zv_test_suite(sobol_tests
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/sobol_points_test.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/sobol_bits_test.cpp)
