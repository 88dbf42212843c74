target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/cox_walk.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/cox_sweep.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/cox_gateway.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht_panel_generic.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht_panel_avx2.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht_gateway.cpp)
# The butterflies are plain loops over contiguous rows, left to the vectoriser.
set_source_files_properties(
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht_panel_generic.cpp
  PROPERTIES COMPILE_OPTIONS "-O3")
set_source_files_properties(
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht_panel_avx2.cpp
  PROPERTIES COMPILE_OPTIONS "-O3;-mavx2")
