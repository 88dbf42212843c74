# Orthogonal matching pursuit: ompBatchImpl and ompCholImpl.
target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/sparse/omp_norms.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sparse/omp_batch.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sparse/omp_chol.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sparse/omp_gateway.cpp)
