# Quasi-random generation: Halton permutations and Sobol points.
target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/halton_permutation.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/halton_gateway.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/sobol_direction_numbers.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/sobol_points.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/sobol_gateway.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/sobol_bits_gateway.cpp)
