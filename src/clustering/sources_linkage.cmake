target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_condensed.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_single_tree.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_vector.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_gateway.cpp)
