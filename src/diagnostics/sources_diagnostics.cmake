target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/cox_walk.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/cox_sweep.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/cox_gateway.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/diagnostics/fwht_gateway.cpp)
