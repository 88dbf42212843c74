target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_condensed.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_single_tree.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_vector.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_gateway.cpp)
# The distance runs of the memory-saving mode need the loop vectoriser's
# full cost model (unknown run lengths).
set_source_files_properties(${CMAKE_CURRENT_SOURCE_DIR}/clustering/linkage_vector.cpp PROPERTIES COMPILE_OPTIONS "-O3")
